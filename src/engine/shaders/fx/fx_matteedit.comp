// fx_matteedit: grows or shrinks the (pre-blurred, in aux) matte by shifting its soft edge,
// then bends it with a gamma.
void fx_matteedit(FX_ARGS) {
  FX_BEGIN
  float a = pow(clamp(texture(aux, uv).r + P[2], 0.0, 1.0), 1.0 / max(P[1], 0.01));
  if (P[3] > 0.5) a = 1.0 - a;
  o = vec4(a, a, a, 1.0);
  FX_END
}
