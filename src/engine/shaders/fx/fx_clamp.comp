// fx_clamp: bounds every channel. Written as min(max()) rather than clamp() so crossed bounds
// have a defined result (the maximum wins).
void fx_clamp(FX_ARGS) {
  FX_BEGIN
  o.rgb = min(max(s.rgb, vec3(P[0])), vec3(P[1]));
  FX_END
}
