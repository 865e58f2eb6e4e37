// k_stabover (a, b, out): premultiplied a over b, opaque result (the stabilised frame over its fill).
void k_stabover() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W2))) return;
  vec4 a = texelFetch(T0, g, 0);
  vec4 b = texelFetch(T1, g, 0);
  imageStore(W2, g, vec4(a.rgb + b.rgb * (1.0 - a.a), 1.0));
}
