// fx_flip: mirrors the picture across its vertical and/or horizontal centre line; a mirror never
// reaches outside the picture.
void fx_flip(FX_ARGS) {
  FX_BEGIN
  vec2 q = uv;
  if (P[0] > 0.5) q.x = 1.0 - q.x;
  if (P[1] > 0.5) q.y = 1.0 - q.y;
  o = texture(src, q);
  FX_END
}
