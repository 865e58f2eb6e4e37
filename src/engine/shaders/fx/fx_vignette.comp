// fx_vignette: darkens towards the edges along a round falloff (in square units, so the vignette
// is a circle whatever the aspect), of radius P[1] and width P[2].
void fx_vignette(FX_ARGS) {
  FX_BEGIN
  vec2 d = (uv - 0.5) * vec2(I.width / I.height, 1.0);
  float v = 1.0 - smoothstep(P[1] - P[2] / 2.0, P[1] + P[2] / 2.0, length(d));
  o.rgb = s.rgb * mix(1.0, v, P[0]);
  FX_END
}
