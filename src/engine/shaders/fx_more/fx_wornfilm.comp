// fx_wornfilm: projected old film. Everything random is drawn per film frame (fps P6, seed P7)
// from integer hashes, so one frame always renders the same. P: 0 scratches, 1 dust, 2 flicker,
// 3 weave, 4 ageing, 5 vignette, 6 frame rate, 7 seed.
void fx_wornfilm(FX_ARGS) {
  FX_BEGIN
  float sc = I.height / 1080.0;
  float asp = I.width / I.height;
  uint fr = uint(int(max(I.time, 0.0) * max(P[6], 1.0)) + int(7919.0 * P[7]));

  // The frame floats in the gate, more vertically than sideways.
  vec2 wv = vec2(hash2(fr, 1u, 3u) - 0.5, hash2(fr, 2u, 3u) - 0.5) * P[3] * vec2(2.0, 4.0) * sc;
  vec3 col = texture(src, uv + wv / res).rgb;
  col *= 1.0 + 0.35 * P[2] * (hash2(fr, 5u, 9u) - 0.5);

  // Faded, yellowed stock.
  vec3 aged = mix(vec3(dot(col, LUMA)), col, 0.55) * vec3(1.06, 0.98, 0.84) + vec3(0.04, 0.03, 0.02);
  col = mix(col, aged, P[4]);

  // Up to four vertical scratches, light or dark, broken along their length.
  float scr = 0.0;
  for (uint i = 0u; i < 4u; ++i) {
    if (hash2(fr, i, 21u) > 0.8 * P[0]) continue;
    float x = hash2(fr, i, 22u);
    float w = 0.6 + 1.6 * hash2(fr, i, 23u);
    float dx = (uv.x - x) * I.width / max(sc, 0.1);
    float line = exp(-(dx / w) * (dx / w));
    float broken = smoothstep(0.3, 0.6, noise(vec2(12.0 * uv.y, float(fr % 997u) + 13.0 * float(i)), 2.0));
    scr += (hash2(fr, i, 24u) > 0.5 ? 1.0 : -1.0) * line * broken;
  }
  col += 0.3 * scr;

  // Dust: a few cells hold a ragged speck, mostly dark, sometimes a bright hole.
  float cs = 36.0 * sc;
  vec2 pc = vec2(gid) / cs, ci = floor(pc);
  uvec2 cu = uvec2(ivec2(ci));
  float hd = hash2(cu.x, cu.y, 3u * fr + 1u);
  if (hd < 0.025 * P[1]) {
    vec2 ctr = 0.2 + 0.6 * vec2(hash2(cu.x, cu.y, 3u * fr + 2u), hash2(cu.x, cu.y, 3u * fr + 3u));
    vec2 dd = pc - ci - ctr;
    float rad = 0.04 + 0.14 * hash2(cu.x, cu.y, 3u * fr + 4u);
    float shape = rad * (0.7 + 0.6 * noise(30.0 * dd + ci, 5.0));
    float dust = below(0.6 * shape, shape, length(dd));
    col = mix(col, vec3(hd < 0.006 * P[1] ? 0.95 : 0.03), 0.85 * dust);
  }

  col *= 1.0 - P[5] * smoothstep(0.35, 0.95, length((uv - 0.5) * vec2(asp, 1.0)));
  o.rgb = max(col, 0.0);
  FX_END
}
