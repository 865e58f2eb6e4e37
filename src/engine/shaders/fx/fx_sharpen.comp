// fx_sharpen: unsharp mask against the pre-blurred Front in aux.
void fx_sharpen(FX_ARGS) {
  FX_BEGIN
  vec3 blurred = texelFetch(aux, ivec2(gid), 0).rgb;
  o.rgb = s.rgb + (s.rgb - blurred) * P[1];
  FX_END
}
