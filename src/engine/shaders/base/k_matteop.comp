// k_matteop (a, b, out; P[0] op): a times b, or a times (1 - b) when op is above 1.5 (the subject
// removed). Red channels, left unclamped on purpose: later stages decide how to clip.
void k_matteop() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W2))) return;
  float a = texelFetch(T0, g, 0).r;
  float b = texelFetch(T1, g, 0).r;
  float v = P[0] > 1.5 ? a * (1.0 - b) : a * b;
  imageStore(W2, g, vec4(v, v, v, 1.0));
}
