// fx_neon: sharp edges of the source become tubes, edges of the blurred picture (aux) their glow.
void fx_neon(FX_ARGS) {
  FX_BEGIN
  float e = smoothstep(P[0], P[0] + 0.25, sobel(src, uv, 1.0));
  float g = 2.5 * sobel(aux, uv, max(1.0, P[1] / 2.0));
  vec3 col = P[4] > 0.5 ? normalize(max(s.rgb, vec3(0.02))) * 1.4 : hueColor(P[3]);
  o.rgb = s.rgb * P[5] + (col * (1.2 * e + g) + 0.35 * e) * P[2];
  FX_END
}
