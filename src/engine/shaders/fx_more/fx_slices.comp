// fx_slices: the picture cut into P0 bands across the angle P2, each slid sideways by its own
// random amount up to P1; with P3 they jump 12 times a second. P: 0 count, 1 shift px, 2 angle,
// 3 animated, 4 seed.
void fx_slices(FX_ARGS) {
  FX_BEGIN
  vec2 pix = vec2(gid) + 0.5;
  vec2 p = rot(pix - res / 2.0, -P[2]);
  float n = max(floor(P[0] + 0.5), 1.0);
  int id = int(floor(p.y / (I.height / n)));
  uint fr = P[3] > 0.5 ? uint(int(12.0 * I.time)) : 0u;
  p.x += 2.0 * P[1] * (hash2(uint(id + 1000), fr, uint(int(P[4]) + 3)) - 0.5);
  o = texture(src, (rot(p, P[2]) + res / 2.0) / res);
  o.a = s.a;
  FX_END
}
