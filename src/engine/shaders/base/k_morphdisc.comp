// k_morphdisc (level, acc, out; P: pad, span, lo, hi, dilate, first; D[i]: the half-width of the
// disc's row i above and below the centre): one group of rows of a disc-shaped maximum (dilate)
// or minimum, per channel. `level` is the picture padded by `pad` repeated columns on each side,
// each texel holding the extreme over `span` texels from it; a row of the disc whose width lies
// between span and twice span is then covered exactly by two such texels. Rows lo..hi on each
// side go into the extreme read from acc (ignored when first); rows past the picture repeat its
// edge rows.
void k_morphdisc() {
  ivec2 g = pixelID();
  ivec2 size = imageSize(W2);
  if (outsideOf(g, size)) return;
  bool dilate = P[4] > 0.5;
  int pad = int(P[0]), span = int(P[1]), lo = int(P[2]), hi = int(P[3]);
  vec4 acc = P[5] > 0.5 ? vec4(dilate ? -1.0e30 : 1.0e30) : texelFetch(T1, g, 0);
  for (int i = lo; i <= hi; ++i) {
    int w = int(D[i]);
    int a = g.x + pad - w, b = g.x + pad + w - span + 1;
    for (int side = -1; side <= 1; side += 2) {
      if (i == 0 && side > 0) break;
      int y = clamp(g.y + side * i, 0, size.y - 1);
      vec4 u = texelFetch(T0, ivec2(a, y), 0), v = texelFetch(T0, ivec2(b, y), 0);
      acc = dilate ? max(acc, max(u, v)) : min(acc, min(u, v));
    }
  }
  imageStore(W2, g, acc);
}
