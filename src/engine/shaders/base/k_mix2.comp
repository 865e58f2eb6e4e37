// k_mix2 (a, b, out; P[0]): mix(a, b, P[0]) on four channels.
void k_mix2() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W2))) return;
  imageStore(W2, g, mix(texelFetch(T0, g, 0), texelFetch(T1, g, 0), P[0]));
}
