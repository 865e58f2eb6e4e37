// fx_mist: a diffusion filter. The blurred picture (aux) lightens the source, its highlights
// bleed warm, and the blacks are lifted.
void fx_mist(FX_ARGS) {
  FX_BEGIN
  vec3 b = texture(aux, uv).rgb;
  vec3 warm = mix(vec3(1.0), vec3(1.0, 0.9, 0.78), P[3]);
  vec3 hl = max(b - P[2], vec3(0.0)) / max(1.0 - P[2], 0.05);
  vec3 c = mix(s.rgb, max(s.rgb, b), 0.6 * P[0]);
  c += 0.8 * hl * warm * P[0];
  c += P[4] * warm * (1.0 - clamp(c, 0.0, 1.0));
  o.rgb = c;
  FX_END
}
