// fx_transform: position, scale and rotation about the picture's centre. The mapping runs from
// the output back to the source, in square units (x scaled by the aspect) so a rotation doesn't
// shear; the scale is floored so zero doesn't divide by zero. Outside the source is opaque black.
void fx_transform(FX_ARGS) {
  FX_BEGIN
  vec2 a = vec2(I.width / I.height, 1.0);
  vec2 p = (uv - 0.5 - vec2(P[0], P[1]) / 100.0) * a;
  float r = radians(-P[3]);
  float cr = cos(r), sr = sin(r);
  p = vec2(p.x * cr - p.y * sr, p.x * sr + p.y * cr) / max(P[2], 0.01);
  vec2 q = p / a + 0.5;
  bool outside = any(lessThan(q, vec2(0.0))) || any(greaterThan(q, vec2(1.0)));
  o = outside ? vec4(0.0, 0.0, 0.0, 1.0) : texture(src, q);
  FX_END
}
