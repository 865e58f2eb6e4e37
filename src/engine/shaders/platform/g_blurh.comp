// Horizontal half of a separable Gaussian (in, out; P: sigma, radius), clamp-to-edge borders.
// Each thread makes 8 neighbouring pixels of a row (dispatched with a span of 8 across): a
// window of 8 texels slides along the taps, so a texel is fetched once per thread instead of
// once per tap and pixel. Every pixel sums its taps in order, as a tap-by-tap loop would.
void g_blurh() {
  ivec2 g = pixelID();
  ivec2 size = imageSize(W1);
  int x0 = g.x * 8;
  if (outsideOf(ivec2(x0, g.y), size)) return;
  float sigma = max(P[0], 1e-3);
  int r = int(P[1]);
  float k = -0.5 / (sigma * sigma);
  vec4 win[8];
  for (int j = 0; j < 8; ++j) win[j] = texelFetch(T0, ivec2(clamp(x0 - r + j, 0, size.x - 1), g.y), 0);
  vec4 acc[8];
  for (int j = 0; j < 8; ++j) acc[j] = vec4(0.0);
  float wsum = 0.0;
  for (int i = -r; i <= r; ++i) {
    float w = exp(float(i * i) * k);
    for (int j = 0; j < 8; ++j) acc[j] += w * win[j];
    wsum += w;
    for (int j = 0; j < 7; ++j) win[j] = win[j + 1];
    win[7] = texelFetch(T0, ivec2(clamp(x0 + i + 8, 0, size.x - 1), g.y), 0);
  }
  for (int j = 0; j < 8; ++j)
    if (x0 + j < size.x) imageStore(W1, ivec2(x0 + j, g.y), acc[j] / wsum);
}
