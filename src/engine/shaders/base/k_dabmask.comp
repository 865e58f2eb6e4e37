// k_dabmask (matte, out; P: dab count, softness, matte on; dabs in D as for k_facewarp): the
// painted beauty mask. Dabs are applied in order: painting accumulates without passing 1 and an
// eraser (tool < -0.5) takes away from what was painted before it.
void k_dabmask() {
  ivec2 g = pixelID();
  ivec2 size = imageSize(W1);
  if (outsideOf(g, size)) return;
  vec2 res = vec2(size);
  vec2 q = vec2(g) + 0.5;
  int count = min(int(P[0]), int(D.length()) / 8);
  float soft = P[1];
  float m = 0.0;
  for (int i = 0; i < count; ++i) {
    int b = i * 8;
    float r = max(1.0, D[b + 2] * res.x);
    float d = length(q - vec2(D[b], D[b + 1]) * res);
    if (d >= r) continue;
    float e0 = r * (1.0 - soft);
    // A hard brush (no softness) has equal edges, where smoothstep is undefined.
    float edge = e0 < r ? smoothstep(e0, r, d) : 0.0;
    float w = (1.0 - edge) * clamp(D[b + 6], 0.0, 1.0);
    if (D[b + 3] < -0.5) m *= 1.0 - w;
    else m = 1.0 - (1.0 - m) * (1.0 - w);
  }
  if (P[2] > 0.5) m *= clamp(texelFetch(T0, g, 0).r, 0.0, 1.0);
  imageStore(W1, g, vec4(m, m, m, 1.0));
}
