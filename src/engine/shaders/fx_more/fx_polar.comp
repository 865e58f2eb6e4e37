// fx_polar: polar coordinates. Mode 0 wraps the picture into a little planet (its bottom edge at
// the centre, the sky around); mode 1 unrolls a round picture into a strip. P: 0 mode,
// 1 rotation degrees, 2 zoom.
void fx_polar(FX_ARGS) {
  FX_BEGIN
  vec2 asp = vec2(I.width / I.height, 1.0);
  float zoom = max(P[2], 0.05);
  vec2 q;
  if (int(floor(P[0] + 0.5)) == 0) {
    vec2 d = (uv - 0.5) * asp / zoom;
    float a = atan(d.x, d.y) / 6.2831853 + 0.5 + P[1] / 360.0;
    q = vec2(fract(a), 1.0 - 2.0 * length(d));
  } else {
    float a = 6.2831853 * (uv.x - 0.5 - P[1] / 360.0);
    float r = 0.5 * (1.0 - uv.y) / zoom;
    q = 0.5 + vec2(sin(a), cos(a)) * r / asp;
  }
  o = texture(src, q);
  o.a = s.a;
  FX_END
}
