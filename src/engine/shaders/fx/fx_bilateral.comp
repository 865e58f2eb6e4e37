// fx_bilateral: edge-preserving smoothing. 9 by 9 taps P0 / 4 pixels apart, weighted by distance
// (spread P0) and by colour difference (spread P1), so skin softens without bleeding over edges.
void fx_bilateral(FX_ARGS) {
  FX_BEGIN
  float stepPx = P[0] * 0.25;
  float spaceDen = 2.0 * P[0] * P[0] + 0.001;
  // A zero tolerance would make the centre tap 0 / 0; the floor only matters there.
  float rangeDen = max(2.0 * P[1] * P[1], 1e-12);
  vec3 acc = vec3(0.0);
  float wsum = 0.0;
  for (int j = -4; j <= 4; ++j)
    for (int i = -4; i <= 4; ++i) {
      vec2 d = vec2(float(i), float(j)) * stepPx;
      vec3 c = texture(src, uv + d / res).rgb;
      vec3 e = c - s.rgb;
      float w = exp(-dot(d, d) / spaceDen) * exp(-dot(e, e) / rangeDen);
      acc += c * w;
      wsum += w;
    }
  o.rgb = mix(s.rgb, acc / max(wsum, 0.0001), P[2]);
  FX_END
}
