// Fits a source picture into the comp (in, out; P: scale, offset x, offset y in output pixels):
// scaled, centred, over opaque black; never stretched. Outside the picture: black.
void g_conform() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W1))) return;
  vec2 src = vec2(textureSize(T0, 0));
  vec2 s = (vec2(g) + 0.5 - vec2(P[1], P[2])) / P[0];
  if (s.x < 0.0 || s.y < 0.0 || s.x > src.x || s.y > src.y) {
    imageStore(W1, g, vec4(0.0, 0.0, 0.0, 1.0));
    return;
  }
  // The picture arrives premultiplied: over black its colour stays, and it becomes opaque.
  imageStore(W1, g, vec4(sampleClamp(T0, s / src).rgb, 1.0));
}
