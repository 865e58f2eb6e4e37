// fx_halation: a red fringe where the blurred highlights (aux) spill past the sharp ones; the
// highlight itself is mostly spared, so the glow rings it.
void fx_halation(FX_ARGS) {
  FX_BEGIN
  float th = P[0], ik = 1.0 / max(1.0 - th, 0.05);
  float hb = clamp((dot(texture(aux, uv).rgb, LUMA) - th) * ik, 0.0, 1.0);
  float hs = clamp((dot(s.rgb, LUMA) - th) * ik, 0.0, 1.0);
  float h = max(hb - 0.6 * hs, 0.0);
  vec3 add = mix(hueColor(P[3]), vec3(1.0), 0.12) * h * P[2];
  o.rgb = P[4] > 0.5 ? add : s.rgb + add;
  FX_END
}
