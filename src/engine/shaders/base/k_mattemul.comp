// k_mattemul (a, b, out): a's colour times the saturated matte b, alpha 1.
void k_mattemul() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W2))) return;
  vec3 a = texelFetch(T0, g, 0).rgb;
  float k = clamp(texelFetch(T1, g, 0).r, 0.0, 1.0);
  imageStore(W2, g, vec4(a * k, 1.0));
}
