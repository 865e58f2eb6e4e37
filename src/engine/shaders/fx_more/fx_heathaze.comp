// fx_heathaze: air shimmering over heat: the picture displaced by rising smooth noise, all over
// or fading in from the bottom or top. P: 0 force px, 1 swirl size px, 2 speed, 3 zone,
// 4 extent % of the zone.
void fx_heathaze(FX_ARGS) {
  FX_BEGIN
  vec2 pix = vec2(gid) + 0.5;
  vec2 p = pix / max(P[1], 2.0) + vec2(0.0, 1.5 * I.time * P[2]);
  float dx = fbm(p, 1.0, 3) - 0.5;
  float dy = fbm(p + vec2(4.3, 1.7), 2.0, 3) - 0.5;
  float e = max(P[4] / 100.0, 0.01);
  int zone = int(floor(P[3] + 0.5));
  float w = zone == 1 ? smoothstep(1.0 - e, 1.0, uv.y) : zone == 2 ? below(0.0, e, uv.y) : 1.0;
  o = texture(src, (pix + 2.0 * P[0] * w * vec2(dx, dy)) / res);
  o.a = s.a;
  FX_END
}
