// fx_kaleido: the picture folded into mirrored wedges around a centre; reads past the border
// reflect, so the pattern never shows a smeared edge.
// P: 0 segments, 1 rotation, 2 centre x %, 3 centre y %, 4 zoom, 5 spin (degrees a second).
void fx_kaleido(FX_ARGS) {
  FX_BEGIN
  float asp = I.width / I.height;
  vec2 c = vec2(P[2], P[3]) / 100.0;
  vec2 d = (uv - c) * vec2(asp, 1.0);
  float r = length(d);
  float seg = 6.2831853 / max(floor(P[0] + 0.5), 1.0);
  float a = atan(d.y, d.x) + radians(P[1] + P[5] * I.time);
  a = a - seg * floor(a / seg);
  a = abs(a - seg / 2.0);
  vec2 q = vec2(cos(a), sin(a)) * r / max(P[4], 0.05);
  o = texture(src, mirror(c + q / vec2(asp, 1.0)));
  o.a = s.a;
  FX_END
}
