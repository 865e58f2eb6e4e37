// fx_keyer3d (Front, out; P = tolY, tolC, soft, invert, reach, view, ..., 15 sample count; D = the
// samples, 8 floats each: r, g, b, sign, x %, y %, 0, 0): a key made of soft ellipsoids in Y, Cb, Cr
// around remembered colours, optionally limited to the neighbourhood where each was picked.
// Subtracting samples cut into the added ones. Until a colour is picked the picture is shown
// dimmed, so the user can see where to paint.
vec3 fx_keyer3d_yc(vec3 c) {
  float y = dot(c, LUMA);
  return vec3(y, (c.b - y) * 0.5, (c.r - y) * 0.65);
}

void fx_keyer3d() {
  ivec2 g = pixelID();
  ivec2 size = imageSize(W1);
  if (outsideOf(g, size)) return;
  vec3 c = texelFetch(T0, g, 0).rgb;
  vec3 a = fx_keyer3d_yc(c);
  vec2 uv = (vec2(g) + 0.5) / vec2(size);
  vec2 aspect = vec2(float(size.x) / float(size.y), 1.0);
  // Never read past the table, whatever the count says.
  int n = min(int(floor(P[15] + 0.5)), int(D.length()) / 8);
  vec3 tol = vec3(max(P[0], 0.002), max(P[1], 0.002), max(P[1], 0.002));
  float reach = P[4] * 0.01;
  float kAdd = 0.0, kSub = 0.0;
  for (int i = 0; i < n; ++i) {
    int e = i * 8;
    vec3 sc = vec3(D[e], D[e + 1], D[e + 2]);
    float d = length((a - fx_keyer3d_yc(sc)) / tol);
    float k = 1.0 - smoothstep(1.0, 1.0 + 3.0 * P[2] + 0.0001, d);
    if (reach > 0.0) {
      float dist = length((uv - vec2(D[e + 4], D[e + 5]) * 0.01) * aspect);
      k *= 1.0 - smoothstep(reach, 1.5 * reach, dist);
    }
    if (D[e + 3] > 0.0) kAdd = max(kAdd, k);
    else kSub = max(kSub, k);
  }
  float k = kAdd * (1.0 - kSub);
  if (P[3] > 0.5) k = 1.0 - k;
  vec4 outc = (P[5] > 0.5 || n <= 0) ? vec4(c * mix(0.22, 1.0, k), 1.0) : vec4(vec3(k), 1.0);
  imageStore(W1, g, outc);
}
