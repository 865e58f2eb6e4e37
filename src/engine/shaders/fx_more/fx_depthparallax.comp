// fx_depthparallax: a 2.5D camera move. A ray through the shifted, slightly cropped view is
// marched from near to far until it meets the depth surface (aux, near white).
void fx_depthparallax(FX_ARGS) {
  FX_BEGIN
  vec2 off = vec2(P[0], P[1]) / 100.0;
  float zk = P[2];
  float ph = 6.2831853 * I.time / max(P[5], 0.1);
  int mode = int(floor(P[4] + 0.5));
  if (mode == 1) {
    off *= sin(ph);
    zk *= sin(ph);
  } else if (mode == 2) {
    off = vec2(cos(ph) * P[0], sin(ph) * P[1]) / 100.0;
  }
  // The crop keeps the shifted view inside the picture.
  float crop = 1.0 + (abs(P[0]) + abs(P[1])) / 100.0 + abs(P[2]) / 2.0;
  vec2 base = (uv - 0.5) / crop + 0.5;
  vec2 q = base, prevX = base;
  float prevDiff = 0.0;
  for (int i = 0; i <= 40; ++i) {
    float t = 1.0 - float(i) / 40.0;
    float k = t - P[3];
    vec2 x = 0.5 + (base - 0.5 - off * k) / max(1.0 + zk * k, 0.05);
    float diff = depth(aux, x, P[6]) - t;
    if (diff >= 0.0) {
      q = i == 0 ? x : mix(prevX, x, prevDiff / (prevDiff - diff));
      break;
    }
    q = x;
    prevX = x;
    prevDiff = diff;
  }
  o = vec4(texture(src, q).rgb, s.a);
  FX_END
}
