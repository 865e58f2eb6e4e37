// k_gkpremult (rgb, alpha, out): the keyed subject, premultiplied by its matte.
void k_gkpremult() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W2))) return;
  vec3 c = texelFetch(T0, g, 0).rgb;
  float a = texelFetch(T1, g, 0).r;
  imageStore(W2, g, vec4(c * a, a));
}
