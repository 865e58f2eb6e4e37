// Halves a picture (in, out): the mean of each 2x2 block, edges clamped. Large blurs run on
// such reductions, then come back up bilinearly.
void g_down2() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W1))) return;
  ivec2 last = textureSize(T0, 0) - 1;
  ivec2 s = g * 2;
  vec4 acc = texelFetch(T0, min(s, last), 0) + texelFetch(T0, min(s + ivec2(1, 0), last), 0) +
             texelFetch(T0, min(s + ivec2(0, 1), last), 0) + texelFetch(T0, min(s + ivec2(1, 1), last), 0);
  imageStore(W1, g, acc * 0.25);
}
