// fx_bleach: bleach bypass, the silver left in the print: the picture overlaid on its own
// luminance, then desaturated and given more contrast.
// P: 0 amount, 1 contrast, 2 saturation.
void fx_bleach(FX_ARGS) {
  FX_BEGIN
  vec3 c = clamp(s.rgb, 0.0, 1.0);
  float Lc = dot(c, LUMA);
  // Multiply in the shadows, screen in the lights, switching quickly around 0.45.
  float k = clamp(10.0 * (Lc - 0.45), 0.0, 1.0);
  vec3 nc = mix(2.0 * c * Lc, 1.0 - 2.0 * (1.0 - Lc) * (1.0 - c), k);
  float l = dot(nc, LUMA);
  nc = l + (nc - l) * P[2];
  nc = max((nc - 0.5) * P[1] + 0.5, 0.0);
  o.rgb = mix(s.rgb, nc, P[0]);
  FX_END
}
