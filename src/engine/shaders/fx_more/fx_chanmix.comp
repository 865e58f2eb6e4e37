// fx_chanmix: each output channel a weighted sum of the input channels, optionally rescaled
// so the luminance stays the source's.
// P: 0..2 red from r, g, b; 3..5 green; 6..8 blue; 9 keep luminance.
void fx_chanmix(FX_ARGS) {
  FX_BEGIN
  vec3 x = vec3(dot(s.rgb, vec3(P[0], P[1], P[2])), dot(s.rgb, vec3(P[3], P[4], P[5])),
                dot(s.rgb, vec3(P[6], P[7], P[8])));
  if (P[9] > 0.5) x *= dot(s.rgb, LUMA) / max(dot(x, LUMA), 0.0001);
  o.rgb = max(x, 0.0);
  FX_END
}
