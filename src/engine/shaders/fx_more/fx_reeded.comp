// fx_reeded: reeded glass: each flute of width P0 refracts the (pre-blurred) picture across
// itself, with a highlight on one edge and a shadow on the other. P: 0 flute width px,
// 1 refraction, 2 angle, 3 blur px (applied before, into aux), 4 shine.
void fx_reeded(FX_ARGS) {
  FX_BEGIN
  vec2 pix = vec2(gid) + 0.5;
  float w = max(P[0], 2.0);
  float f = fract(rot(pix, -P[2]).x / w) - 0.5;
  vec2 off = rot(vec2(f * w * P[1], 0.0), P[2]);
  vec3 c = texture(aux, (pix - off) / res).rgb;
  float sheen = 0.5 * P[4] * smoothstep(0.3, 0.48, f) - 0.25 * P[4] * below(-0.48, -0.3, f);
  o.rgb = max(c + sheen, 0.0);
  FX_END
}
