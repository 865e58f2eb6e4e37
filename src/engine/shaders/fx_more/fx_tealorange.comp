// fx_tealorange: teal shadows and orange warm tones, the look of action films; skin tones are
// left alone, since orange skin is what this look must not produce.
// P: 0 amount, 1 skin protection, 2 contrast.
void fx_tealorange(FX_ARGS) {
  FX_BEGIN
  vec3 c = clamp(s.rgb, 0.0, 1.0);
  float Lc = dot(c, LUMA);
  float warm = clamp(2.0 * (c.r - c.b) + 0.5, 0.0, 1.0);
  float sh = below(0.0, 0.55, Lc);
  vec3 tint = vec3(0.0, 0.5, 0.55) * sh * (1.0 - warm) + vec3(1.0, 0.55, 0.2) * warm * smoothstep(0.2, 0.8, Lc);
  // Only the tint's chroma is added, so the luminance stays.
  vec3 x = c + 0.6 * (tint - dot(tint, LUMA)) * P[0];
  x = (x - 0.5) * P[2] + 0.5;
  x = mix(x, c, skin(c) * P[1]);
  o.rgb = max(x, 0.0);
  FX_END
}
