// fx_clarity: local contrast, the luminance's difference with its blurred self (aux), weakest
// near black and white so the extremes don't clip.
void fx_clarity(FX_ARGS) {
  FX_BEGIN
  float l = dot(s.rgb, LUMA), lb = dot(texture(aux, uv).rgb, LUMA);
  float x = clamp(2.0 * abs(l - 0.5), 0.0, 1.0);
  float mid = 1.0 - P[2] * x * x;
  o.rgb = max(vec3(0.0), s.rgb + (l - lb) * P[0] * mid);
  FX_END
}
