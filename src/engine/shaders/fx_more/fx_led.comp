// fx_led: the picture on a panel of diodes seen up close: one diode per cell, lit by the
// colour at the cell's centre, round, square or as three RGB bars.
// P: 0 diode size px, 1 shape (0 round, 1 square, 2 RGB subpixels), 2 brightness, 3 glow.
void fx_led(FX_ARGS) {
  FX_BEGIN
  vec2 pix = vec2(gid) + 0.5;
  float sz = max(P[0], 3.0);
  vec2 cell = floor(pix / sz);
  vec2 f = pix / sz - cell - 0.5;
  vec3 col = texture(src, (cell + 0.5) * sz / res).rgb;
  float aa = 1.5 / sz;
  int shape = int(floor(P[1] + 0.5));
  vec3 lit;
  if (shape == 2) {
    float x3 = 3.0 * (f.x + 0.5);
    int idx = int(min(floor(x3), 2.0));
    float sub = fract(x3) - 0.5;
    float bar = below(0.36 - 3.0 * aa, 0.36 + 3.0 * aa, abs(sub)) * below(0.44 - aa, 0.44 + aa, abs(f.y));
    vec3 only = vec3(0.0);
    only[idx] = col[idx];
    lit = 2.2 * only * bar + 0.5 * col * exp(-5.0 * length(f)) * P[3];
  } else {
    float d = shape == 1 ? max(abs(f.x), abs(f.y)) : length(f);
    lit = col * (below(0.42 - aa, 0.42 + aa, d) + exp(-6.0 * d) * P[3]);
  }
  o.rgb = lit * P[2];
  FX_END
}
