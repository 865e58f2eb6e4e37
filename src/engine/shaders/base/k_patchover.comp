// k_patchover (front, patch, out; P: inverse 2x3 matrix, patch origin x, y and size w, h in pixels):
// a premultiplied patch, placed by the matrix, laid over the front. The front keeps its alpha.
void k_patchover() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W2))) return;
  vec2 q = vec2(g) + 0.5;
  vec2 s = vec2(P[0] * q.x + P[1] * q.y + P[2], P[3] * q.x + P[4] * q.y + P[5]);
  vec4 c = sampleZero(T1, (s - vec2(P[6], P[7])) / vec2(P[8], P[9]));
  vec4 f = texelFetch(T0, g, 0);
  imageStore(W2, g, vec4(c.rgb + f.rgb * (1.0 - c.a), f.a));
}
