// k_gkey (in, rgb out, alpha out; P = screen r, g, b, balance, gain, black clip, white clip, blue,
// despill): a colour-difference keyer. The screen channel's lead over a balanced mix of the other two,
// relative to the same lead in the screen colour, says how much of the screen shows through.
void k_gkey() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W2))) return;
  vec3 c = texelFetch(T0, g, 0).rgb;
  vec3 S = vec3(P[0], P[1], P[2]);
  float w = P[3];
  bool blue = P[7] > 0.5;
  float sc, so, cc, co;
  if (blue) {
    sc = S.b; so = S.r * w + S.g * (1.0 - w);
    cc = c.b; co = c.r * w + c.g * (1.0 - w);
  } else {
    sc = S.g; so = S.r * w + S.b * (1.0 - w);
    cc = c.g; co = c.r * w + c.b * (1.0 - w);
  }
  float d = (cc - co) / max(sc - so, 0.001);
  float a = 1.0 - clamp(d * P[4], 0.0, 1.0);
  a = clamp((a - P[5]) / max(P[6] - P[5], 0.001), 0.0, 1.0);
  // Despill: the screen channel may not exceed the mix of the others.
  float spill = mix(cc, min(cc, co), P[8]);
  vec3 o = c;
  if (blue) o.b = spill; else o.g = spill;
  imageStore(W1, g, vec4(o, 1.0));
  imageStore(W2, g, vec4(a, a, a, 1.0));
}
