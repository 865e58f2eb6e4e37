// k_mvunpremul (blurred, map, out): divides the blurred weighted vectors by the blurred weight, so
// unreliable vectors take their reliable neighbours' values; the confidence stays the unblurred one.
void k_mvunpremul() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W2))) return;
  vec4 b = texelFetch(T0, g, 0);
  vec4 m = texelFetch(T1, g, 0);
  vec2 d = b.xy / max(b.w, 0.001);
  imageStore(W2, g, vec4(d, m.z, 0.0));
}
