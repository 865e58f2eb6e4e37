// k_maskview (mask, picture, out): shows a mask over the picture, its outside darkened and tinted red.
// Both inputs are sampled, so either may differ in size from the output.
void k_maskview() {
  ivec2 g = pixelID();
  ivec2 size = imageSize(W2);
  if (outsideOf(g, size)) return;
  vec2 uv = (vec2(g) + 0.5) / vec2(size);
  float m = sampleClamp(T0, uv).r;
  vec3 b = sampleClamp(T1, uv).rgb;
  vec3 c = b * (m + (1.0 - m) * 0.35) + (1.0 - m) * vec3(0.18, 0.02, 0.03);
  imageStore(W2, g, vec4(clamp(c, 0.0, 1.0), 1.0));
}
