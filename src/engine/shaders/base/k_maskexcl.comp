// k_maskexcl (painted, polygons, matte, out; P: source, matte on): the beauty mask from the painted
// mask (source 0), the zone polygons (1) or the hollow polygons (2), less the exclusion polygons.
void k_maskexcl() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W3))) return;
  vec4 poly = texelFetch(T1, g, 0);
  float base = P[0] < 0.5 ? texelFetch(T0, g, 0).r : (P[0] < 1.5 ? poly.r : poly.b);
  float v = base * (1.0 - poly.g);
  if (P[1] > 0.5) v *= clamp(texelFetch(T2, g, 0).r, 0.0, 1.0);
  imageStore(W3, g, vec4(v, v, v, 1.0));
}
