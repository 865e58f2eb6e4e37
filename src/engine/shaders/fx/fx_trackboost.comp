// fx_trackboost: local contrast in grey (the picture minus its blur, in aux, amplified about
// mid grey), which brings out the faint texture a tracker needs.
void fx_trackboost(FX_ARGS) {
  FX_BEGIN
  const vec3 w = vec3(0.299, 0.587, 0.114);
  float v = clamp(0.5 + P[1] * (dot(s.rgb, w) - dot(texture(aux, uv).rgb, w)), 0.0, 1.0);
  o = vec4(v, v, v, 1.0);
  FX_END
}
