// fx_huesat: hue turns the colour about the grey axis (Rodrigues), so greys stay put; then
// saturation, with vibrance pushing dull colours more than already vivid ones; then lightness.
void fx_huesat(FX_ARGS) {
  FX_BEGIN
  const vec3 k = vec3(0.57735);
  float a = radians(P[0]);
  float ca = cos(a), sa = sin(a);
  vec3 c = s.rgb * ca + cross(k, s.rgb) * sa + k * dot(k, s.rgb) * (1.0 - ca);
  float l = dot(c, LUMA);
  float cmax = max(c.r, max(c.g, c.b));
  float cmin = min(c.r, min(c.g, c.b));
  float vib = 1.0 + P[2] * (1.0 - clamp(2.0 * (cmax - cmin), 0.0, 1.0));
  c = l + (c - l) * P[1] * vib;
  o.rgb = c + 0.5 * P[3];
  FX_END
}
