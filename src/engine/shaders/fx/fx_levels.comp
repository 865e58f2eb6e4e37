// fx_levels: input black/white, gamma, output black/white. The floors keep a collapsed input
// range or a zero gamma from dividing by zero.
void fx_levels(FX_ARGS) {
  FX_BEGIN
  vec3 c = (s.rgb - P[0]) / max(P[1] - P[0], 0.001);
  c = pow(max(c, vec3(0.0)), vec3(1.0 / max(P[2], 0.01)));
  o.rgb = mix(vec3(P[3]), vec3(P[4]), c);
  FX_END
}
