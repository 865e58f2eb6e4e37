// fx_bloom: adds what rises above the threshold in the blurred picture (aux): a wide glow
// around the highlights only.
void fx_bloom(FX_ARGS) {
  FX_BEGIN
  o.rgb = s.rgb + max(texture(aux, uv).rgb - P[0], vec3(0.0)) * P[2];
  FX_END
}
