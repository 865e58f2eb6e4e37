// fx_bulge: a round lens that magnifies (force > 0) or pinches (force < 0), blended back to the
// untouched picture over the outer fifth of its radius. P: 0 force, 1 radius %, 2-3 centre %.
void fx_bulge(FX_ARGS) {
  FX_BEGIN
  vec2 a = vec2(I.width / I.height, 1.0);
  vec2 c = vec2(P[2], P[3]) / 100.0;
  vec2 d = (uv - c) * a;
  float r = length(d) / max(P[1] / 100.0, 0.001);
  if (r < 1.0) {
    float nr = pow(max(r, 0.0001), 1.0 + P[0]);
    d *= mix(1.0, nr / max(r, 0.0001), below(0.8, 1.0, r));
  }
  o = texture(src, c + d / a);
  o.a = s.a;
  FX_END
}
