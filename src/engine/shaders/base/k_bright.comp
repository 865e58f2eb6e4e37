// k_bright (in, out; P = thresh, intensity, warmth, pad): what glows. Pixels brighter than the
// threshold, scaled by how far above it they are, tinted warm or cool. Alpha 1: it is blurred next.
void k_bright() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W1))) return;
  vec3 c = texelFetch(T0, g, 0).rgb;
  float l = dot(c, LUMA);
  float k = max(0.0, (l - P[0]) / max(1.0 - P[0], 0.001));
  vec3 tint = vec3(1.0 + 0.35 * P[2], 1.0, 1.0 - 0.45 * P[2]);
  imageStore(W1, g, vec4(c * k * tint, 1.0));
}
