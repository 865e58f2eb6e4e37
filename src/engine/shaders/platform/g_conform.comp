// Fits a source picture into a target (in, out; P: scale, offset x, offset y in output pixels,
// transparent): scaled, centred, never stretched. Over opaque black by default: outside the
// picture is black and the picture becomes opaque. With P[3] above 0.5 the background is
// transparent and the picture keeps its alpha.
void g_conform() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W1))) return;
  bool transparent = P[3] > 0.5;
  vec2 src = vec2(textureSize(T0, 0));
  vec2 s = (vec2(g) + 0.5 - vec2(P[1], P[2])) / P[0];
  if (s.x < 0.0 || s.y < 0.0 || s.x > src.x || s.y > src.y) {
    imageStore(W1, g, vec4(0.0, 0.0, 0.0, transparent ? 0.0 : 1.0));
    return;
  }
  // The picture arrives premultiplied: over black its colour stays.
  vec4 c = sampleClamp(T0, s / src);
  imageStore(W1, g, transparent ? c : vec4(c.rgb, 1.0));
}
