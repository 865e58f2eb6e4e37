// fx_duotone: two inks only, one for the shadows and one for the lights, blended along the
// luminance.
// P: 0 shadow hue, 1 shadow saturation, 2 light hue, 3 light saturation, 4 contrast, 5 mix.
void fx_duotone(FX_ARGS) {
  FX_BEGIN
  float Lc = clamp((clamp(dot(s.rgb, LUMA), 0.0, 1.0) - 0.5) * P[4] + 0.5, 0.0, 1.0);
  vec3 dark = mix(vec3(0.06), 0.32 * hueColor(P[0]), P[1]);
  vec3 light = mix(vec3(0.98), mix(vec3(1.0), hueColor(P[2]), 0.55), P[3]);
  o.rgb = mix(s.rgb, mix(dark, light, smoothstep(0.0, 1.0, Lc)), P[5]);
  FX_END
}
