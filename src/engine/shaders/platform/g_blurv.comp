// Vertical half of a separable Gaussian (in, out; P: sigma, radius), clamp-to-edge borders.
// Each thread makes 8 pixels of a column (dispatched with a span of 8 down), with the sliding
// window of g_blurh.
void g_blurv() {
  ivec2 g = pixelID();
  ivec2 size = imageSize(W1);
  int y0 = g.y * 8;
  if (outsideOf(ivec2(g.x, y0), size)) return;
  float sigma = max(P[0], 1e-3);
  int r = int(P[1]);
  float k = -0.5 / (sigma * sigma);
  vec4 win[8];
  for (int j = 0; j < 8; ++j) win[j] = texelFetch(T0, ivec2(g.x, clamp(y0 - r + j, 0, size.y - 1)), 0);
  vec4 acc[8];
  for (int j = 0; j < 8; ++j) acc[j] = vec4(0.0);
  float wsum = 0.0;
  for (int i = -r; i <= r; ++i) {
    float w = exp(float(i * i) * k);
    for (int j = 0; j < 8; ++j) acc[j] += w * win[j];
    wsum += w;
    for (int j = 0; j < 7; ++j) win[j] = win[j + 1];
    win[7] = texelFetch(T0, ivec2(g.x, clamp(y0 + i + 8, 0, size.y - 1)), 0);
  }
  for (int j = 0; j < 8; ++j)
    if (y0 + j < size.y) imageStore(W1, ivec2(g.x, y0 + j), acc[j] / wsum);
}
