// k_lut3d (in, 3D LUT, out; P = cube size, mix): a colour cube. The coordinates land on texel
// centres, so 0 and 1 hit the first and last entries exactly; the filter is trilinear.
void k_lut3d() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W2))) return;
  vec4 s = texelFetch(T0, g, 0);
  float n = max(2.0, P[0]);
  vec3 coord = clamp(s.rgb, 0.0, 1.0) * ((n - 1.0) / n) + 0.5 / n;
  vec3 c = textureLod(L0, coord, 0.0).rgb;
  imageStore(W2, g, vec4(mix(s.rgb, c, clamp(P[1], 0.0, 1.0)), s.a));
}
