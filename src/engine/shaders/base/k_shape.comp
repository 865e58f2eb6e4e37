// k_shape (out; P = count, feather, invert, pad, box x0, y0, x1, y1; D = point pairs in pixels):
// a filled polygon by the non-zero winding rule whose feather only grows outward, so the drawn
// shape stays whole. Pixels outside the box skip the edge walk.
void k_shape() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W0))) return;
  vec2 q = vec2(g) + 0.5;
  float m = 0.0;
  if (q.x >= P[4] && q.x <= P[6] && q.y >= P[5] && q.y <= P[7]) {
    int n = int(P[0]);
    float dmin = 1e30;
    int winding = 0;
    for (int i = 0; i < n; ++i) {
      int j = (i + 1 == n) ? 0 : i + 1;
      vec2 a = vec2(D[2 * i], D[2 * i + 1]);
      vec2 b = vec2(D[2 * j], D[2 * j + 1]);
      vec2 ab = b - a;
      vec2 aq = q - a;
      float t = clamp(dot(aq, ab) / max(dot(ab, ab), 0.000001), 0.0, 1.0);
      dmin = min(dmin, length(aq - ab * t));
      float cr = ab.x * aq.y - aq.x * ab.y;
      if (a.y <= q.y && b.y > q.y && cr > 0.0) winding += 1;
      else if (a.y > q.y && b.y <= q.y && cr < 0.0) winding -= 1;
    }
    if (winding != 0) m = 1.0;
    else if (P[1] > 0.0) m = 1.0 - smoothstep(0.0, P[1], dmin);
  }
  if (P[2] > 0.5) m = 1.0 - m;
  imageStore(W0, g, vec4(m, m, m, 1.0));
}
