// fx_mono: black and white from a channel mix. The weights are normalised so their sum doesn't
// change the exposure; the floor keeps all-zero weights from dividing by zero.
void fx_mono(FX_ARGS) {
  FX_BEGIN
  vec3 w = vec3(P[0], P[1], P[2]);
  float l = dot(s.rgb, w) / max(w.r + w.g + w.b, 0.001);
  o.rgb = mix(s.rgb, vec3(l), P[3]);
  FX_END
}
