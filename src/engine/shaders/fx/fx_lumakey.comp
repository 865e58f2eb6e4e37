// fx_lumakey: a matte from a soft step on luminance. The upper edge is kept above the lower one
// so the step stays defined when the two meet or cross.
void fx_lumakey(FX_ARGS) {
  FX_BEGIN
  float l = dot(s.rgb, LUMA);
  float k = smoothstep(P[0], max(P[1], P[0] + 0.001), l);
  if (P[2] > 0.5) k = 1.0 - k;
  o = vec4(k, k, k, 1.0);
  FX_END
}
