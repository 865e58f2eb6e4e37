// fx_chroma: lateral chromatic aberration. Red and blue are read P0 pixels apart along the
// radius, outward and inward, growing towards the edges with the power P1.
void fx_chroma(FX_ARGS) {
  FX_BEGIN
  vec2 d = uv - 0.5;
  float f = pow(max(2.0 * length(d), 1e-8), P[1]);  // pow(0, y) is undefined for y <= 0
  vec2 off = d / (length(d) + 0.00001) * P[0] * f / res;
  o.r = texture(src, uv + off).r;
  o.b = texture(src, uv - off).b;
  FX_END
}
