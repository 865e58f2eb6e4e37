// fx_codec: an over-compressed stream: each block keeps its mean and a coarsely quantised
// detail, and colour comes from blocks twice as large. P: 0 block px, 1 damage, 2 chroma bleed.
void fx_codec(FX_ARGS) {
  FX_BEGIN
  vec2 pix = vec2(gid) + 0.5;
  float bs = max(P[0], 2.0);
  vec2 b0 = floor(pix / bs) * bs;
  vec3 mean = vec3(0.0);
  for (int j = 0; j < 4; ++j)
    for (int i = 0; i < 4; ++i) mean += texture(src, (b0 + (vec2(i, j) + 0.5) * bs / 4.0) / res).rgb;
  mean /= 16.0;
  float qs = mix(0.02, 0.35, P[1]);
  vec3 detail = floor((s.rgb - mean) / qs + 0.5) * qs;
  vec2 c0 = floor(pix / (2.0 * bs)) * 2.0 * bs;
  vec3 cm = texture(src, (c0 + bs) / res).rgb;
  vec3 c = mean + detail * (1.0 - 0.7 * P[1]);
  c = mix(c, dot(c, LUMA) + (cm - dot(cm, LUMA)), P[2]);
  o.rgb = max(c, 0.0);
  FX_END
}
