// fx_splittone: one tint for the shadows, another for the highlights, crossing over around the
// balance point.
void fx_splittone(FX_ARGS) {
  FX_BEGIN
  float l = dot(s.rgb, LUMA);
  float bal = 0.5 + 0.4 * P[4];
  float wh = smoothstep(bal - 0.35, bal + 0.35, l);
  o.rgb = s.rgb + (hueColor(P[0]) - 0.5) * P[1] * (1.0 - wh) + (hueColor(P[2]) - 0.5) * P[3] * wh;
  FX_END
}
