// k_renoise (front, original, denoised, matte, out; P = amount, use matte): puts the noise that
// denoising removed (original - denoised) back onto a retouched picture so it matches the plate.
void k_renoise() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W4))) return;
  vec4 f = texelFetch(T0, g, 0);
  vec3 grain = texelFetch(T1, g, 0).rgb - texelFetch(T2, g, 0).rgb;
  float k = P[0];
  if (P[1] > 0.5) k *= clamp(texelFetch(T3, g, 0).r, 0.0, 1.0);
  imageStore(W4, g, vec4(f.rgb + grain * k, f.a));
}
