// k_gkgrow (blurred, garbage, out; P = sense, garbage on): after a blur, doubling the matte grows it
// and doubling minus one shrinks it; an optional garbage matte cuts what lies outside.
void k_gkgrow() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W2))) return;
  float b = texelFetch(T0, g, 0).r;
  float v = b;
  if (P[0] > 0.5) v = clamp(2.0 * b, 0.0, 1.0);
  else if (P[0] < -0.5) v = clamp(2.0 * b - 1.0, 0.0, 1.0);
  if (P[1] > 0.5) v *= texelFetch(T1, g, 0).r;
  imageStore(W2, g, vec4(v, v, v, 1.0));
}
