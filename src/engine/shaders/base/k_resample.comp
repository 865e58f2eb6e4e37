// k_resample (in, out): bilinear rescale to the output's size (snapshots, often into rgba8).
void k_resample() {
  ivec2 g = pixelID();
  ivec2 size = imageSize(W1);
  if (outsideOf(g, size)) return;
  imageStore(W1, g, sampleClamp(T0, (vec2(g) + 0.5) / vec2(size)));
}
