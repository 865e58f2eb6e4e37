// k_mattecombine (a, b, out; P = op, invert a, single): joins two saturated mattes. Union by default,
// a alone when single (which with invert a gives an inverted copy); ops 1..4 override.
int k_mattecombine_round(float x) { return int(x < 0.0 ? -floor(-x + 0.5) : floor(x + 0.5)); }

void k_mattecombine() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W2))) return;
  float a = clamp(texelFetch(T0, g, 0).r, 0.0, 1.0);
  float b = clamp(texelFetch(T1, g, 0).r, 0.0, 1.0);
  if (P[1] > 0.5) a = 1.0 - a;
  float r = P[2] > 0.5 ? a : max(a, b);
  int op = k_mattecombine_round(P[0]);
  if (op == 1) r = a * (1.0 - b);
  else if (op == 2) r = a * b;
  else if (op == 3) r = clamp(a + b, 0.0, 1.0);
  else if (op == 4) r = abs(a - b);
  imageStore(W2, g, vec4(r, r, r, 1.0));
}
