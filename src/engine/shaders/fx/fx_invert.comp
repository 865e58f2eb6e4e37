// fx_invert: o = mix(s, 1 - s, P0).
void fx_invert(FX_ARGS) {
  FX_BEGIN
  o.rgb = mix(s.rgb, 1.0 - s.rgb, P[0]);
  FX_END
}
