// fx_glitch: a corrupted digital signal, redrawn speed P4 times a second. Torn bands, moved and
// smeared blocks, split channels. P: 0 amount, 1 block px, 2 channel shift px, 3 how often the
// full amount hits, 4 speed, 5 smear, 6 seed.
void fx_glitch(FX_ARGS) {
  FX_BEGIN
  vec2 pix = vec2(gid) + 0.5;
  uint t = uint(int(max(I.time, 0.0) * max(P[4], 1.0)) + int(131.0 * P[6]));
  float amp = hash2(t, 7u, 1u) < P[3] ? P[0] : 0.12 * P[0];
  float bs = max(P[1], 4.0);
  vec2 q = pix;

  // Horizontal bands torn sideways.
  uint band = uint(int(pix.y / (bs / 2.0)));
  float hb = hash2(band, t, 11u);
  if (hb < 0.45 * amp) q.x += 0.25 * I.width * amp * (hash2(band, t, 12u) - 0.5);

  // Blocks moved elsewhere, and blocks whose rows smear down from their top.
  uvec2 bc = uvec2(ivec2(pix / bs));
  bool blk = hash2(bc.x, bc.y, 5u * t + 3u) < 0.12 * amp;
  if (blk) q += 6.0 * bs * (vec2(hash2(bc.x, bc.y, t + 41u), hash2(bc.x, bc.y, t + 42u)) - 0.5);
  if (hash2(bc.x, bc.y, 5u * t + 4u) < 0.25 * P[5] * amp) q.y = floor(q.y / bs) * bs + 0.5;

  float sh = P[2] * (0.4 + amp);
  if (hb < amp) sh *= 2.0;
  vec3 c = vec3(texture(src, (q + vec2(sh, 0.0)) / res).r, texture(src, q / res).g,
                texture(src, (q - vec2(sh, 0.0)) / res).b);

  // Some moved blocks also lose their colours: inverted or with channels swapped.
  if (blk && hash2(bc.x, bc.y, t + 43u) < 0.35) c = hash2(bc.x, bc.y, t + 44u) < 0.5 ? 1.0 - clamp(c, 0.0, 1.0) : c.gbr;
  if ((gid.y & 1u) == 0u) c *= 1.0 - 0.12 * amp;
  o.rgb = c;
  FX_END
}
