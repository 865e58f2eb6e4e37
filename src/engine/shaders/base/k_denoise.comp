// k_denoise (picture, noise, matte, out; P = strength, use matte): subtracts a stored noise
// picture (centred on 0.5), optionally only inside the matte.
void k_denoise() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W3))) return;
  vec4 s = texelFetch(T0, g, 0);
  vec3 noise = texelFetch(T1, g, 0).rgb;
  float k = P[0];
  if (P[1] > 0.5) k *= clamp(texelFetch(T2, g, 0).r, 0.0, 1.0);
  imageStore(W3, g, vec4(s.rgb - (noise - 0.5) * k, s.a));
}
