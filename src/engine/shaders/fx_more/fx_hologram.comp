// fx_hologram: the picture as a cold projected hologram: luminance in one hue, glowing edges,
// rolling scan lines, a bright sweep and rows that jump sideways now and then.
// P: 0 hue, 1 lines, 2 line spacing px, 3 flicker, 4 edge glow, 5 jumps, 6 dimmed picture behind.
void fx_hologram(FX_ARGS) {
  FX_BEGIN
  vec2 pix = vec2(gid) + 0.5;
  float sc = I.height / 1080.0;
  float t = I.time;
  uint fr = uint(int(24.0 * max(t, 0.0)));

  uint row = uint(int(floor(pix.y / (18.0 * sc))));
  float dx = hash2(row, fr / 3u, 7u) < 0.15 * P[5] ? 40.0 * sc * (hash2(row, fr, 8u) - 0.5) : 0.0;
  vec2 q = (pix + vec2(dx, 0.0)) / res;
  vec3 c = texture(src, q).rgb;
  float lc = dot(c, LUMA);
  float e = sobel(src, q, 1.5);

  float sp = max(P[2], 1.0);
  float lines = 1.0 - 0.6 * P[1] * step(0.5, fract((pix.y + 30.0 * t * sc) / sp));
  float sw = 2.0 * fract(uv.y - 0.15 * t) - 1.0;
  float sweep = 1.0 + 0.6 * exp(-60.0 * sw * sw);
  float flick = 1.0 - 0.3 * P[3] * hash2(fr, 1u, 2u);
  vec3 hc = hueColor(P[0]);
  vec3 holo = (mix(1.3 * hc * lc, vec3(lc), 0.15) + hc * e * P[4] + vec3(0.3 * e * P[4])) * lines * sweep * flick;
  o.rgb = P[6] > 0.5 ? holo + 0.35 * s.rgb : holo;
  FX_END
}
