// fx_infrared: false-colour infrared film: green drives red, so foliage turns pink-red and the
// sky goes dark.
// P: 0 amount, 1 red foliage, 2 contrast.
void fx_infrared(FX_ARGS) {
  FX_BEGIN
  vec3 c = clamp(s.rgb, 0.0, 1.0);
  // How much greener than its other channels the pixel is: a rough foliage mask.
  float foliage = clamp(4.0 * (c.g - max(c.r, c.b)), 0.0, 1.0);
  vec3 x = vec3(0.9 * c.g + 0.25 * c.r, 0.55 * c.r + 0.25 * c.b, 0.85 * c.b + 0.1 * c.g);
  x = mix(x, vec3(1.0, 0.25, 0.45) * (0.6 + 0.6 * c.g), 0.6 * foliage * P[1]);
  x = (x - 0.5) * P[2] + 0.5;
  o.rgb = mix(s.rgb, max(x, 0.0), P[0]);
  FX_END
}
