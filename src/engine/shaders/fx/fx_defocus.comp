// fx_defocus: lens blur over a disc of radius P0 pixels, 64 taps on a golden-angle spiral (even
// coverage with no visible rings). Bright taps weigh more, so highlights bloom into bokeh.
void fx_defocus(FX_ARGS) {
  FX_BEGIN
  vec4 acc = vec4(0.0);
  float wsum = 0.0;
  for (int i = 0; i < 64; ++i) {
    float r = sqrt((float(i) + 0.5) / 64.0) * P[0];
    float a = 2.39996323 * float(i);
    vec4 c = texture(src, uv + r * vec2(cos(a), sin(a)) / res);
    float w = 1.0 + 8.0 * P[1] * max(0.0, dot(c.rgb, LUMA) - 0.75);
    acc += c * w;
    wsum += w;
  }
  o = acc / wsum;
  FX_END
}
