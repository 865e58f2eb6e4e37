// k_morphlevel (in, out; P: offset, step, dilate): per channel the greater (dilate) or the lesser
// of in at x - offset and at x - offset + step, positions clamped to the input's columns.
// With step 0 it copies a picture into a wider one with its edge columns repeated (the padding
// of a morphology); with offset 0 it doubles the span of a running extreme.
void k_morphlevel() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W1))) return;
  int last = textureSize(T0, 0).x - 1;
  int x = g.x - int(P[0]);
  vec4 u = texelFetch(T0, ivec2(clamp(x, 0, last), g.y), 0);
  vec4 v = texelFetch(T0, ivec2(clamp(x + int(P[1]), 0, last), g.y), 0);
  imageStore(W1, g, P[2] > 0.5 ? max(u, v) : min(u, v));
}
