// fx_vhs: a worn tape played back. Lines wobble, a tracking band rolls through, the bottom edge
// tears, and chroma is smeared much wider than luma, as on tape. P: 0 wear, 1 chroma bleed px,
// 2 tracking band, 3 noise, 4 wobble, 5 saturation, 6 torn bottom, 7 seed.
void fx_vhs(FX_ARGS) {
  FX_BEGIN
  vec2 pix = vec2(gid) + 0.5;
  float sc = I.height / 1080.0;
  float t = I.time;
  uint fr = uint(int(max(t, 0.0) * 30.0) + int(977.0 * P[7]));

  float wob = 6.0 * sc * P[4] * (noise(vec2(40.0 * uv.y, 6.0 * t), P[7]) - 0.5);
  float tb = fract(0.07 * t + 0.13 * P[7]);
  float bz = 18.0 * (uv.y - tb);
  float band = exp(-bz * bz) * P[2];
  wob += 40.0 * sc * band * (hash2(gid.y, fr, 3u) - 0.3);
  float bottom = smoothstep(1.0 - 0.045 * P[6] - 0.001, 1.0, uv.y) * P[6];
  wob += sc * bottom * (24.0 + 30.0 * hash2(gid.y, fr, 4u));
  vec2 q = vec2(pix.x + wob, pix.y);

  float y = 0.0;
  for (int i = -2; i <= 2; ++i) y += toYIQ(texture(src, (q + vec2(0.9 * sc * float(i), 0.0)) / res).rgb).x;
  y /= 5.0;
  float bl = max(P[1], 0.5);
  vec2 iq = vec2(0.0);
  for (int i = 0; i <= 8; ++i) {
    float k = float(i - 4) / 4.0;
    iq += toYIQ(texture(src, (q + vec2((k + 0.6) * bl, 0.0)) / res).rgb).yz;
  }
  iq = iq / 9.0 * P[5];
  vec3 c = fromYIQ(vec3(y, iq));

  float n = hash2(gid.x, gid.y, fr) - 0.5;
  float streak = step(1.0 - 0.0025 * P[3] - 0.05 * band, hash2(gid.y, fr, 9u)) *
                 hash2(uint(int(float(gid.x) / (40.0 * sc))), gid.y, fr);
  c += 0.12 * n * P[3] + 0.6 * streak + 0.25 * band * (n + 0.5);
  c = mix(c, 0.88 * c + vec3(0.06, 0.04, 0.08), P[0]);
  c += 0.05 * P[0] * (hash2(gid.y, fr, 2u) - 0.5);
  c += 0.4 * bottom * (n + 0.3);
  o.rgb = max(c, 0.0);
  FX_END
}
