// fx_frosted: frosted glass: each grain shows the (pre-blurred) picture from a random nearby
// spot. With P3 the frost is redrawn 24 times a second. P: 0 spread px, 1 grain px, 2 blur px
// (applied before, into aux), 3 animated.
void fx_frosted(FX_ARGS) {
  FX_BEGIN
  vec2 pix = vec2(gid) + 0.5;
  uint fr = P[3] > 0.5 ? uint(int(24.0 * I.time)) : 0u;
  uvec2 g = uvec2(ivec2(pix / max(P[1], 1.0)));
  float a = 6.2831853 * hash2(g.x, g.y, 51u + fr);
  float r = sqrt(hash2(g.x, g.y, 52u + fr)) * P[0];
  o = texture(aux, (pix + vec2(cos(a), sin(a)) * r) / res);
  o.a = s.a;
  FX_END
}
