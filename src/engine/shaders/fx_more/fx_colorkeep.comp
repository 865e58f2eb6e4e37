// fx_colorkeep: keeps one hue (and boosts it) while the rest goes to grey; greys themselves
// never count as the kept hue, whatever their nominal hue.
// P: 0 kept hue, 1 hue tolerance, 2 softness, 3 saturation of the rest, 4 boost of the kept colour.
void fx_colorkeep(FX_ARGS) {
  FX_BEGIN
  vec3 hsv = toHSV(s.rgb);
  float dh = abs(mod(hsv.x * 360.0 - P[0] + 180.0, 360.0) - 180.0);
  float keep = below(P[1], P[1] + max(P[2], 0.5), dh) * smoothstep(0.05, 0.2, hsv.y);
  float l = dot(s.rgb, LUMA);
  vec3 rest = l + (s.rgb - l) * P[3];
  vec3 kept = l + (s.rgb - l) * P[4];
  o.rgb = max(mix(rest, kept, keep), 0.0);
  FX_END
}
