// k_facewarp (in, out; P: dab count, mix; dabs in D, 8 floats each: centre x, y, radius, tool,
// vx, vy, force, 0, all normalised). Liquify: the dabs define a forward displacement field,
// which the kernel inverts approximately with two fixed-point steps before sampling.

// Displacement in pixels at x, the dabs applied in order (an eraser damps what came before it).
vec2 k_facewarp_disp(vec2 x, vec2 res, int count) {
  vec2 d = vec2(0.0);
  for (int i = 0; i < count; ++i) {
    int b = i * 8;
    vec2 c = vec2(D[b], D[b + 1]) * res;
    float r = max(1.0, D[b + 2] * res.x);
    float tool = D[b + 3];
    float force = D[b + 6];
    float t = length(x - c) / r;
    if (t >= 1.0) continue;
    float w = (1.0 - t * t) * (1.0 - t * t);
    if (tool < -0.5) {
      d *= 1.0 - w * clamp(force, 0.0, 1.0);
    } else {
      int kind = int(round(tool));
      if (kind == 0) d += vec2(D[b + 4], D[b + 5]) * res * w;
      else if (kind == 1) d += (c - x) * w * force * 0.35;
      else if (kind == 2) d += (x - c) * w * force * 0.35;
    }
  }
  return d;
}

void k_facewarp() {
  ivec2 g = pixelID();
  ivec2 size = imageSize(W1);
  if (outsideOf(g, size)) return;
  vec2 res = vec2(size);
  vec2 q = vec2(g) + 0.5;
  int count = min(int(P[0]), int(D.length()) / 8);
  float amount = P[1];
  vec2 d1 = k_facewarp_disp(q, res, count) * amount;
  vec2 d2 = k_facewarp_disp(q - d1, res, count) * amount;
  imageStore(W1, g, sampleClamp(T0, (q - d2) / res));
}
