// k_mvpremul (map, out): weights the vectors by their confidence before the blur, so the blur
// becomes a normalised convolution (k_mvunpremul divides the weight back out).
void k_mvpremul() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W1))) return;
  vec4 m = texelFetch(T0, g, 0);
  float c = clamp(m.z, 0.0, 1.0);
  float w = c * c + 0.001;
  imageStore(W1, g, vec4(m.xy * w, m.z, w));
}
