// k_polymask (out; table D): soft polygons of face zones. D[0] = polygon count n; polygon i has a
// header of 12 floats at 1 + 12 i: first point index into D, point count, grow px, softness px,
// weight, mode, box x0, y0, x1, y1, 0, 0. Points are (x, y) pairs in pixels.
// Mode 0 writes red (zones), 1 green (exclusions), any other blue (hollows); each channel keeps
// the greatest value. The softness lies only outside the grown shape, which stays whole.
void k_polymask() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W0))) return;
  vec2 q = vec2(g) + 0.5;
  int len = int(D.length());
  vec3 acc = vec3(0.0);
  int n = len > 0 ? int(D[0]) : 0;
  for (int i = 0; i < n; ++i) {
    int h = 1 + 12 * i;
    if (h + 12 > len) break;
    if (q.x < D[h + 6] || q.y < D[h + 7] || q.x > D[h + 8] || q.y > D[h + 9]) continue;
    int start = int(D[h]);
    int count = int(D[h + 1]);
    if (start < 0 || count < 1) continue;
    count = min(count, (len - start) / 2);
    float dmin = 1e30;
    bool inside = false;
    for (int j = 0; j < count; ++j) {
      int k = j + 1 < count ? j + 1 : 0;
      vec2 a = vec2(D[start + 2 * j], D[start + 2 * j + 1]);
      vec2 b = vec2(D[start + 2 * k], D[start + 2 * k + 1]);
      vec2 e = b - a;
      float t = clamp(dot(q - a, e) / max(dot(e, e), 0.000001), 0.0, 1.0);
      dmin = min(dmin, length(q - a - e * t));
      if ((a.y > q.y) != (b.y > q.y) && q.x < a.x + (q.y - a.y) * e.x / e.y) inside = !inside;
    }
    float fe = max(0.5, D[h + 3]);
    float v = smoothstep(-fe, 0.0, (inside ? dmin : -dmin) + D[h + 2]) * D[h + 4];
    int mode = int(round(D[h + 5]));
    if (mode == 0) acc.r = max(acc.r, v);
    else if (mode == 1) acc.g = max(acc.g, v);
    else acc.b = max(acc.b, v);
  }
  imageStore(W0, g, vec4(acc, 1.0));
}
