// Vertical half of a separable Gaussian (in, out; P: sigma, radius), clamp-to-edge borders.
void g_blurv() {
  ivec2 g = pixelID();
  ivec2 size = imageSize(W1);
  if (outsideOf(g, size)) return;
  float sigma = max(P[0], 1e-3);
  int r = int(P[1]);
  float k = -0.5 / (sigma * sigma);
  vec4 acc = vec4(0.0);
  float wsum = 0.0;
  for (int i = -r; i <= r; ++i) {
    float w = exp(float(i * i) * k);
    acc += w * texelFetch(T0, ivec2(g.x, clamp(g.y + i, 0, size.y - 1)), 0);
    wsum += w;
  }
  imageStore(W1, g, acc / wsum);
}
