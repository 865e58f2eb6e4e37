// fx_crossprocess: film developed in the wrong chemistry: contrasty red, lifted flat blue
// (cold shadows), yellow-green highlights.
// P: 0 amount, 1 saturation.
void fx_crossprocess(FX_ARGS) {
  FX_BEGIN
  vec3 c = clamp(s.rgb, 0.0, 1.0);
  vec3 x;
  x.r = smoothstep(0.05, 0.95, c.r);
  x.g = 1.03 * mix(c.g, smoothstep(0.0, 1.0, c.g), 0.6);
  x.b = 0.62 * c.b + 0.18;
  x += vec3(0.05, 0.06, -0.06) * smoothstep(0.5, 1.0, dot(x, LUMA));
  float l = dot(x, LUMA);
  x = max(l + (x - l) * P[1], 0.0);
  o.rgb = mix(s.rgb, x, P[0]);
  FX_END
}
