// fx_thermal: false colours of the luminance, as from a thermal camera.
// P: 0 palette (0 infrared, 1 rainbow, 2 ice), 1 offset, 2 contrast, 3 mix.
void fx_thermal(FX_ARGS) {
  FX_BEGIN
  float t = (dot(s.rgb, LUMA) - 0.5) * P[2] + 0.5 + P[1];
  o.rgb = mix(s.rgb, ramp(t, floor(P[0] + 0.5)), P[3]);
  FX_END
}
