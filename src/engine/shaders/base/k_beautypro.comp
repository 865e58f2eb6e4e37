// k_beautypro (source, g1, g2, g3, g4, matte, out; P: mix, fine, small, medium, large, texture,
// blemish, redness, shine, edges, grain, skin auto, tolerance, view, use matte, time).
// Multi-band skin retouch: the picture is split into four detail bands over the widest blur g4,
// each band's luminance and chroma are damped separately, then the result is blended back
// through a skin mask. The blurs are exact texels: they share the output's geometry.

float k_beautypro_luma(sampler2D t, ivec2 p, ivec2 size) {
  return dot(texelFetch(t, clamp(p, ivec2(0), size - 1), 0).rgb, LUMA);
}

void k_beautypro() {
  ivec2 g = pixelID();
  ivec2 size = imageSize(W6);
  if (outsideOf(g, size)) return;

  vec4 s = texelFetch(T0, g, 0);
  vec3 g1 = texelFetch(T1, g, 0).rgb;
  vec3 g2 = texelFetch(T2, g, 0).rgb;
  vec3 g3 = texelFetch(T3, g, 0).rgb;
  vec3 g4 = texelFetch(T4, g, 0).rgb;

  // Skin likelihood from the chroma of the finest blur, so single noisy pixels don't flicker it.
  float skin = 1.0;
  if (P[11] > 0.5) {
    float y = dot(g1, LUMA);
    float cb = (g1.b - y) * 0.564;
    float cr = (g1.r - y) * 0.713;
    float d = length(vec2((cr - 0.075) / 0.07, (cb + 0.05) / 0.06));
    float tol = 0.6 + 1.6 * P[12];
    skin = (1.0 - smoothstep(tol, tol + 0.8, d)) * smoothstep(0.04, 0.12, y) * (1.0 - smoothstep(0.97, 1.0, y));
  }
  if (P[14] > 0.5) skin *= clamp(texelFetch(T5, g, 0).r, 0.0, 1.0);

  // Strong edges (eyes, lips, hair line) keep their detail.
  ivec2 dx = ivec2(2, 0), dy = ivec2(0, 2);
  vec2 grad = vec2(k_beautypro_luma(T2, g + dx, size) - k_beautypro_luma(T2, g - dx, size),
                   k_beautypro_luma(T2, g + dy, size) - k_beautypro_luma(T2, g - dy, size));
  float protect = 1.0 - smoothstep(0.015, 0.09, length(grad)) * P[9];

  vec3 b0 = s.rgb - g1, b1 = g1 - g2, b2 = g2 - g3, b3 = g3 - g4;
  float y0 = dot(b0, LUMA), y1 = dot(b1, LUMA), y2 = dot(b2, LUMA), y3 = dot(b3, LUMA);
  vec3 c0 = b0 - y0, c1 = b1 - y1, c2 = b2 - y2, c3 = b3 - y3;

  float k1 = 1.0 - P[2] * protect;
  float k2 = 1.0 - P[3] * protect;
  float k3 = 1.0 - P[4] * protect;
  float kc = 1.0 - max(P[7], 0.0) * protect;
  // Dark spots are taken out harder than bright ones.
  float dark = min(0.0, y1 + y2);
  float yb = y1 * k1 + y2 * k2 - dark * P[6] * protect * 0.9;
  float y0k = y0 * (1.0 - P[1]) * P[5];

  vec3 r = g4 + (y0k + yb + y3 * k3) + c0 * (1.0 - P[1]) + c1 * min(k1, kc) + c2 * min(k2, kc) + c3 * min(k3, kc);

  // Shine: compress the highlights above 0.65.
  float ry = dot(r, LUMA);
  float hi = smoothstep(0.65, 1.0, ry) * P[8];
  r -= ry - mix(ry, 0.65 + (ry - 0.65) * 0.35, hi);

  if (P[10] > 0.0) {
    float n = fract(sin(dot(vec2(g) + 37.0 * P[15], vec2(12.9898, 78.233))) * 43758.5453) - 0.5;
    r += n * P[10];
  }

  vec3 o = mix(s.rgb, r, clamp(P[0] * skin, 0.0, 1.0));
  if (P[13] > 1.5) o = 0.5 + (s.rgb - o) * 4.0;  // what the retouch removes
  else if (P[13] > 0.5) o = vec3(skin);
  imageStore(W6, g, vec4(o, s.a));
}
