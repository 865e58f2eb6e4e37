// fx_lensdistort: radial barrel (k > 0) or pincushion (k < 0) distortion with a zoom, in square
// units about the centre. Outside the source is opaque black.
void fx_lensdistort(FX_ARGS) {
  FX_BEGIN
  vec2 a = vec2(I.width / I.height, 1.0);
  vec2 d = (uv - 0.5) * a;
  vec2 q = d * (1.0 + P[0] * dot(d, d)) / max(P[1], 0.01) / a + 0.5;
  bool outside = any(lessThan(q, vec2(0.0))) || any(greaterThan(q, vec2(1.0)));
  o = outside ? vec4(0.0, 0.0, 0.0, 1.0) : texture(src, q);
  FX_END
}
