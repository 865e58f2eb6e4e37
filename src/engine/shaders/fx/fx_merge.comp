// fx_merge: dissolve from Front towards Back (in aux); the alpha stays Front's.
void fx_merge(FX_ARGS) {
  FX_BEGIN
  o.rgb = mix(s.rgb, texture(aux, uv).rgb, P[0]);
  FX_END
}
