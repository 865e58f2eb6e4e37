// k_mattechatter (current, n0..n5, out; P[0..5] weights, P[6] tau, P[7] step): temporal smoothing of
// mattes, per channel. A neighbour frame counts less where its local mean differs from the current
// one, so a trembling edge settles but a moving subject is not smeared.
vec3 k_mattechatter_mean(sampler2D t, ivec2 g, int st) {
  ivec2 size = textureSize(t, 0);
  vec3 acc = vec3(0.0);
  for (int dy = -1; dy <= 1; ++dy)
    for (int dx = -1; dx <= 1; ++dx) {
      ivec2 p = clamp(g + ivec2(dx, dy) * st, ivec2(0), size - 1);
      acc += texelFetch(t, p, 0).rgb;
    }
  return acc / 9.0;
}

void k_mattechatter() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W7))) return;
  float r = P[7];
  int st = max(1, int(r < 0.0 ? -floor(-r + 0.5) : floor(r + 0.5)));
  float tau = max(0.02, P[6]);
  vec3 cm = k_mattechatter_mean(T0, g, st);
  vec3 sum = texelFetch(T0, g, 0).rgb;
  vec3 wsum = vec3(1.0);
  for (int i = 0; i < 6; ++i) {
    float w = P[i];
    if (!(w > 0.0)) continue;
    vec3 m, v;
    // Samplers cannot be indexed by a loop variable here, hence the switch.
    switch (i) {
      case 0: m = k_mattechatter_mean(T1, g, st); v = texelFetch(T1, g, 0).rgb; break;
      case 1: m = k_mattechatter_mean(T2, g, st); v = texelFetch(T2, g, 0).rgb; break;
      case 2: m = k_mattechatter_mean(T3, g, st); v = texelFetch(T3, g, 0).rgb; break;
      case 3: m = k_mattechatter_mean(T4, g, st); v = texelFetch(T4, g, 0).rgb; break;
      case 4: m = k_mattechatter_mean(T5, g, st); v = texelFetch(T5, g, 0).rgb; break;
      default: m = k_mattechatter_mean(T6, g, st); v = texelFetch(T6, g, 0).rgb; break;
    }
    vec3 d = abs(m - cm) / tau;
    vec3 k = w * exp(-d * d);
    sum += k * v;
    wsum += k;
  }
  imageStore(W7, g, vec4(sum / wsum, 1.0));
}
