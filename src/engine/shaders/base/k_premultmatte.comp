// k_premultmatte (picture, m, out): the picture premultiplied by the saturated matte, which
// becomes its alpha.
void k_premultmatte() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W2))) return;
  vec3 c = texelFetch(T0, g, 0).rgb;
  float k = clamp(texelFetch(T1, g, 0).r, 0.0, 1.0);
  imageStore(W2, g, vec4(c * k, k));
}
