// fx_posterize: P[0] levels per channel (at least 2), so n steps between black and white.
void fx_posterize(FX_ARGS) {
  FX_BEGIN
  float n = max(P[0], 2.0) - 1.0;
  o.rgb = floor(clamp(s.rgb, 0.0, 1.0) * n + 0.5) / n;
  FX_END
}
