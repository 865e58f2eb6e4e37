// k_maskblend (a, b, out; P[0] op, rounded): how one mask layer joins the layers below it.
// 0 add (a + b - ab, also any unknown op), 1 subtract, 2 intersect, 3 difference, 4 max, 5 min.
int k_maskblend_round(float x) { return int(x < 0.0 ? -floor(-x + 0.5) : floor(x + 0.5)); }

void k_maskblend() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W2))) return;
  float a = texelFetch(T0, g, 0).r;
  float b = texelFetch(T1, g, 0).r;
  int op = k_maskblend_round(P[0]);
  float v;
  if (op == 1) v = a * (1.0 - b);
  else if (op == 2) v = a * b;
  else if (op == 3) v = abs(a - b);
  else if (op == 4) v = max(a, b);
  else if (op == 5) v = min(a, b);
  else v = a + b - a * b;
  v = clamp(v, 0.0, 1.0);
  imageStore(W2, g, vec4(v, v, v, 1.0));
}
