// fx_swirl: turns the picture about a centre by up to P0 degrees, easing to nothing at the
// radius P1 (% of the height). P: 0 angle, 1 radius, 2-3 centre %.
void fx_swirl(FX_ARGS) {
  FX_BEGIN
  vec2 a = vec2(I.width / I.height, 1.0);
  vec2 c = vec2(P[2], P[3]) / 100.0;
  vec2 d = (uv - c) * a;
  float k = clamp(1.0 - length(d) / max(P[1] / 100.0, 0.001), 0.0, 1.0);
  k = k * k * (3.0 - 2.0 * k);
  o = texture(src, c + rot(d, P[0] * k) / a);
  o.a = s.a;
  FX_END
}
