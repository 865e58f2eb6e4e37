// k_shape (out; P = count, feather, invert, pad, box x0, y0, x1, y1; D = point pairs in pixels):
// a filled polygon by the non-zero winding rule whose feather only grows outward, so the drawn
// shape stays whole. Pixels outside the box skip the edge walk.
//
// Anti-aliasing: a pixel whose centre lies within half a pixel of the outline takes the share of
// the pixel on the inside, c = clamp(0.5 - signed distance), and the feather covers the rest:
// m = c + (1 - c) f. Farther than half a pixel this is exactly 1 inside and the feather outside.
//
// Each 16 x 16 tile first sorts the segments together: those near the tile (within the feather)
// go to a shared list that every pixel walks; those wholly to the right of the tile only count
// in the winding of the rows they cross, once per row. A tile whose list overflows walks every
// segment, as a pixel would alone.
const int K_SHAPE_LIST = 2048;
shared int k_shape_list[K_SHAPE_LIST];
shared int k_shape_count;
shared int k_shape_rowWind[16];

void k_shape_segment(int i, int n, vec2 q, inout float dmin, inout int winding) {
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

void k_shape() {
  ivec2 g = pixelID();
  uint tid = gl_LocalInvocationIndex;
  int n = int(P[0]);
  float fe = P[1];
  vec2 tile0 = vec2(gl_WorkGroupID.xy * 16u);
  vec2 tile1 = tile0 + 16.0;
  bool tileInBox = !(tile1.x < P[4] || tile0.x > P[6] || tile1.y < P[5] || tile0.y > P[7]);
  if (tid == 0u) k_shape_count = 0;
  if (tid < 16u) k_shape_rowWind[tid] = 0;
  barrier();
  if (tileInBox) {
    float reach = fe + 2.0;
    vec2 e0 = tile0 - reach, e1 = tile1 + reach;
    for (int i = int(tid); i < n; i += 256) {
      int j = (i + 1 == n) ? 0 : i + 1;
      vec2 a = vec2(D[2 * i], D[2 * i + 1]);
      vec2 b = vec2(D[2 * j], D[2 * j + 1]);
      vec2 lo = min(a, b), hi = max(a, b);
      if (hi.x >= e0.x && lo.x <= e1.x && hi.y >= e0.y && lo.y <= e1.y) {
        int slot = atomicAdd(k_shape_count, 1);
        if (slot < K_SHAPE_LIST) k_shape_list[slot] = i;
      } else if (lo.x > tile1.x && hi.y >= tile0.y && lo.y <= tile1.y) {
        // Wholly right of every pixel of the tile: it crosses the rightward ray of a row when the
        // row lies in its span, upward +1, downward -1.
        for (int r = 0; r < 16; ++r) {
          float qy = tile0.y + float(r) + 0.5;
          if (a.y <= qy && b.y > qy) atomicAdd(k_shape_rowWind[r], 1);
          else if (a.y > qy && b.y <= qy) atomicAdd(k_shape_rowWind[r], -1);
        }
      }
    }
  }
  barrier();
  if (outsideOf(g, imageSize(W0))) return;
  vec2 q = vec2(g) + 0.5;
  float m = 0.0;
  if (q.x >= P[4] && q.x <= P[6] && q.y >= P[5] && q.y <= P[7]) {
    float dmin = 1e30;
    int winding = 0;
    int listed = k_shape_count;
    if (listed <= K_SHAPE_LIST) {
      winding = k_shape_rowWind[g.y - int(tile0.y)];
      for (int k = 0; k < listed; ++k) k_shape_segment(k_shape_list[k], n, q, dmin, winding);
    } else {
      for (int i = 0; i < n; ++i) k_shape_segment(i, n, q, dmin, winding);
    }
    float s = winding != 0 ? -dmin : dmin;
    float c = clamp(0.5 - s, 0.0, 1.0);
    float f = fe > 0.0 ? 1.0 - smoothstep(0.0, fe, max(s, 0.0)) : 0.0;
    m = c + (1.0 - c) * f;
  }
  if (P[2] > 0.5) m = 1.0 - m;
  imageStore(W0, g, vec4(m, m, m, 1.0));
}
