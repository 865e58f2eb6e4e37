// fx_wheels: lift, gain, then gamma per channel. The gamma exponent is floored so a gamma
// wheel pulled fully down can't blow up to an infinite power.
void fx_wheels(FX_ARGS) {
  FX_BEGIN
  vec3 lift = vec3(P[0], P[1], P[2]);
  vec3 gamma = vec3(P[3], P[4], P[5]);
  vec3 gain = vec3(P[6], P[7], P[8]);
  vec3 c = s.rgb + lift * (1.0 - s.rgb);
  c *= gain;
  o.rgb = pow(max(c, vec3(0.0)), 1.0 / max(1.0 + gamma, vec3(0.05)));
  FX_END
}
