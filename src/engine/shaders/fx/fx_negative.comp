// fx_negative: inverts a matte or a picture. The result is opaque: it is meant to be used as a
// matte, where a transparent alpha would hide it.
void fx_negative(FX_ARGS) {
  FX_BEGIN
  o = vec4(mix(s.rgb, 1.0 - clamp(s.rgb, 0.0, 1.0), P[0]), 1.0);
  FX_END
}
