// fx_edgeblur: softens only the edge of a matte. aux holds the matte blurred, which crosses 0.5
// at the edge; mixing it with the sharp matte chooses on which side the softness falls.
void fx_edgeblur(FX_ARGS) {
  FX_BEGIN
  float a = clamp(s.r, 0.0, 1.0);
  float b = clamp(texture(aux, uv).r, 0.0, 1.0);
  float mode = sign(P[1]) * floor(abs(P[1]) + 0.5);
  float r;
  if (mode == 0.0) r = a * clamp(2.0 * b, 0.0, 1.0);       // inside: the shape keeps its size
  else if (mode == 2.0) r = max(a, clamp(2.0 * b, 0.0, 1.0));  // outside: the edge spills over
  else r = b;                                               // centred on the edge
  r = pow(clamp(r, 0.0, 1.0), 1.0 / max(P[2], 0.01));
  o = vec4(r, r, r, 1.0);
  FX_END
}
