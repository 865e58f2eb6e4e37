// k_viewquad (img, before, out): the viewer's last pass, drawing the picture at the output's size
// with an optional comparison against `before`.
// P: mode (0 picture, 1 matte over before, 2 wipe, 3 difference), wipe position in u, wipe line
// half-width in u, nearest (> 0.5 samples the nearest texel: pixels stay visible when zoomed in),
// hasBefore (without it only the matte overlay runs, over the picture itself).
vec4 viewquadSample(sampler2D t, vec2 uv, bool nearest) {
  if (!nearest) return sampleClamp(t, uv);
  ivec2 size = textureSize(t, 0);
  return texelFetch(t, clamp(ivec2(floor(uv * vec2(size))), ivec2(0), size - 1), 0);
}

void k_viewquad() {
  ivec2 g = pixelID();
  ivec2 size = imageSize(W2);
  if (outsideOf(g, size)) return;
  vec2 uv = (vec2(g) + 0.5) / vec2(size);
  float mode = P[0], wipe = P[1], lineW = P[2];
  bool nearest = P[3] > 0.5, hasBefore = P[4] > 0.5;
  vec3 c = viewquadSample(T0, uv, nearest).rgb;
  if (mode > 0.5 && mode <= 1.5) {
    // The same tint as k_maskview: the matte's outside darkened and reddened.
    float m = c.r;
    vec3 b = hasBefore ? viewquadSample(T1, uv, nearest).rgb : c;
    c = b * (m + (1.0 - m) * 0.35) + (1.0 - m) * vec3(0.18, 0.02, 0.03);
  } else if (hasBefore && mode > 2.5) {
    c = abs(c - viewquadSample(T1, uv, nearest).rgb) * 4.0;
  } else if (hasBefore && mode > 1.5) {
    if (uv.x < wipe) c = viewquadSample(T1, uv, nearest).rgb;
    if (abs(uv.x - wipe) < lineW) c = vec3(0.94, 0.71, 0.29);
  }
  imageStore(W2, g, vec4(clamp(c, 0.0, 1.0), 1.0));
}
