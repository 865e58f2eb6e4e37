// fx_pixelate: each block of sz pixels shows the picture sampled at the block's centre.
void fx_pixelate(FX_ARGS) {
  FX_BEGIN
  float sz = max(P[0], 1.0);
  // The first pixel of a block must stay in it even where the division is approximate.
  vec2 p = (floor((vec2(gid) + 0.001) / sz) + 0.5) * sz;
  o = texture(src, p / res);
  FX_END
}
