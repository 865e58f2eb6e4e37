// k_xform (in, out; P: 2x3 matrix m0..m5): each output pixel centre is mapped into the input's
// pixels; outside the input it is transparent black, never a stretched edge. The input may have
// another size than the output.
void k_xform() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W1))) return;
  vec2 q = vec2(g) + 0.5;
  vec2 s = vec2(P[0] * q.x + P[1] * q.y + P[2], P[3] * q.x + P[4] * q.y + P[5]);
  vec2 size = vec2(textureSize(T0, 0));
  vec4 c = vec4(0.0);
  if (s.x >= 0.0 && s.y >= 0.0 && s.x <= size.x && s.y <= size.y) c = sampleZero(T0, s / size);
  imageStore(W1, g, c);
}
