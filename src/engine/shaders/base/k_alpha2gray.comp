// k_alpha2gray (picture, out): the picture's alpha as a matte.
void k_alpha2gray() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W1))) return;
  float a = texelFetch(T0, g, 0).a;
  imageStore(W1, g, vec4(a, a, a, 1.0));
}
