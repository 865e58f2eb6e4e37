// fx_prismglow: the blurred highlights (aux) read seven times at slightly different scales
// about the centre, each read tinted by a hue from red to violet: red spreads outwards.
void fx_prismglow(FX_ARGS) {
  FX_BEGIN
  vec2 d = uv - 0.5;
  vec3 acc = vec3(0.0), wsum = vec3(0.0);
  for (int j = 0; j <= 6; ++j) {
    float t = float(j) / 6.0;
    vec3 w = hueColor(260.0 * t);
    vec3 g = texture(aux, 0.5 + d * (1.0 + (t - 0.5) * P[3])).rgb;
    g = max(g - P[0], vec3(0.0)) / max(1.0 - P[0], 0.05);
    acc += g * w;
    wsum += w;
  }
  vec3 g = acc / max(wsum, vec3(0.0001));
  float l = dot(g, LUMA);
  g = max(l + (g - l) * P[4], vec3(0.0));
  o.rgb = s.rgb + g * P[2];
  FX_END
}
