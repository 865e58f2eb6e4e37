// fx_contrast: contrast about a pivot, plus a brightness offset.
void fx_contrast(FX_ARGS) {
  FX_BEGIN
  o.rgb = (s.rgb - P[1]) * P[0] + P[1] + P[2];
  FX_END
}
