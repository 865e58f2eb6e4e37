// k_grain (in, out; P = amount, size, seed, pad): monochrome grain, one hashed value per block of
// size by size pixels, so the same seed always gives the same frame.
void k_grain() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W1))) return;
  vec4 s = texelFetch(T0, g, 0);
  uint sz = uint(max(1, int(P[1])));
  uint seed = uint(int(P[2]));
  float n = (hash2(uint(g.x) / sz, uint(g.y) / sz, seed) * 2.0 - 1.0) * P[0];
  imageStore(W1, g, vec4(s.rgb + n, s.a));
}
