// fx_threshold: grey from a soft step on luminance. The small offset keeps the step defined
// when the softness is zero.
void fx_threshold(FX_ARGS) {
  FX_BEGIN
  float l = dot(s.rgb, LUMA);
  o.rgb = vec3(smoothstep(P[0] - P[1], P[0] + P[1] + 0.0001, l));
  FX_END
}
