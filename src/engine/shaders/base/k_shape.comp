// k_shape (out; P = feather, invert, box x0, y0, x1, y1; D = the shape table of shape_table.h):
// a filled polygon by the non-zero winding rule whose feather only grows outward, so the drawn
// shape stays whole. Pixels outside the box skip everything.
//
// The winding of a pixel is the sum of the row's crossings right of its centre; its distance to
// the outline comes from the segments listed for its tile, those within the feather's reach.
// Anti-aliasing: a pixel whose centre lies within half a pixel of the outline takes the share of
// the pixel on the inside, c = clamp(0.5 - signed distance), and the feather covers the rest:
// m = c + (1 - c) f. Farther than half a pixel this is exactly 1 inside and the feather outside.
void k_shape() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W0))) return;
  vec2 q = vec2(g) + 0.5;
  float fe = P[0];
  float m = 0.0;
  if (q.x >= P[2] && q.x <= P[4] && q.y >= P[3] && q.y <= P[5] && g.y < int(D[0])) {
    int tilesX = int(D[1]), n = int(D[3]);
    int rowAt = int(D[4]), crossAt = int(D[5]), tileAt = int(D[6]), listAt = int(D[7]), ptsAt = int(D[8]);
    int winding = 0;
    int c1 = int(D[rowAt + g.y + 1]);
    for (int c = int(D[rowAt + g.y]); c < c1; ++c)
      if (D[crossAt + 2 * c] > q.x) winding += int(D[crossAt + 2 * c + 1]);
    float dmin = 1e30;
    int t = (g.y / 16) * tilesX + g.x / 16;
    int s1 = int(D[tileAt + t + 1]);
    for (int s = int(D[tileAt + t]); s < s1; ++s) {
      int i = int(D[listAt + s]);
      int j = (i + 1 == n) ? 0 : i + 1;
      vec2 a = vec2(D[ptsAt + 2 * i], D[ptsAt + 2 * i + 1]);
      vec2 b = vec2(D[ptsAt + 2 * j], D[ptsAt + 2 * j + 1]);
      vec2 ab = b - a;
      vec2 aq = q - a;
      float u = clamp(dot(aq, ab) / max(dot(ab, ab), 0.000001), 0.0, 1.0);
      dmin = min(dmin, length(aq - ab * u));
    }
    float sd = winding != 0 ? -dmin : dmin;
    float c = clamp(0.5 - sd, 0.0, 1.0);
    float f = fe > 0.0 ? 1.0 - smoothstep(0.0, fe, max(sd, 0.0)) : 0.0;
    m = c + (1.0 - c) * f;
  }
  if (P[1] > 0.5) m = 1.0 - m;
  imageStore(W0, g, vec4(m, m, m, 1.0));
}
