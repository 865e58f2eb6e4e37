// fx_mirror: one side of a line at P1 % reflected onto the other. P0: 0 left onto right,
// 1 right onto left, 2 top onto bottom, 3 bottom onto top, 4 the top-left quarter on all four.
void fx_mirror(FX_ARGS) {
  FX_BEGIN
  float p = P[1] / 100.0;
  int mode = int(floor(P[0] + 0.5));
  vec2 q = uv;
  if (mode == 0) q.x = p - abs(q.x - p);
  else if (mode == 1) q.x = p + abs(q.x - p);
  else if (mode == 2) q.y = p - abs(q.y - p);
  else if (mode == 3) q.y = p + abs(q.y - p);
  else if (mode == 4) q = p - abs(q - p);
  o = texture(src, mirror(q));
  o.a = s.a;
  FX_END
}
