// fx_kuwahara: oil paint. Of the four quadrants around the pixel, the calmest one (least
// variance) wins, so flat strokes form while edges stay sharp; a faint canvas weave on top.
// P: 0 stroke radius px, 1 saturation, 2 canvas.
void fx_kuwahara(FX_ARGS) {
  FX_BEGIN
  vec2 pix = vec2(gid) + 0.5;
  float stp = max(P[0], 1.0) / 4.0;
  vec3 acc = vec3(0.0);
  float wsum = 0.0;
  for (int quad = 0; quad < 4; ++quad) {
    vec2 sgn = vec2((quad & 1) == 0 ? 1.0 : -1.0, (quad & 2) == 0 ? 1.0 : -1.0);
    vec3 sum = vec3(0.0), sum2 = vec3(0.0);
    for (int j = 0; j < 5; ++j)
      for (int i = 0; i < 5; ++i) {
        vec3 t = texture(src, (pix + vec2(float(i), float(j)) * stp * sgn) / res).rgb;
        sum += t;
        sum2 += t * t;
      }
    vec3 mean = sum / 25.0;
    vec3 variance = sum2 / 25.0 - mean * mean;
    float var = 100.0 * (variance.r + variance.g + variance.b);
    // A steep weight: the calmest quadrant all but decides alone.
    float w = 1.0 / (0.001 + var * var * var * var);
    acc += w * mean;
    wsum += w;
  }
  vec3 c = acc / wsum;
  float l = dot(c, LUMA);
  c = max(l + (c - l) * P[1], 0.0);
  vec2 x = vec2(gid);
  float canvas = 0.5 * sin(1.7 * x.x) * sin(1.7 * x.y) + noise(0.35 * x, 6.0) - 0.5;
  o.rgb = c * (1.0 + 0.12 * canvas * P[2]);
  FX_END
}
