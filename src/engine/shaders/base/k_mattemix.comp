// k_mattemix (a, b, m, out): a to b through the matte m, on all four channels. This is how a
// limited result keeps the untouched picture outside its matte.
void k_mattemix() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W3))) return;
  vec4 a = texelFetch(T0, g, 0);
  vec4 b = texelFetch(T1, g, 0);
  float m = texelFetch(T2, g, 0).r;
  imageStore(W3, g, mix(a, b, m));
}
