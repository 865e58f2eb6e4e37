// fx_crop: black bands over the cropped margins, given in percent of the width and height. A
// pixel whose centre lies exactly on a bound is kept.
void fx_crop(FX_ARGS) {
  FX_BEGIN
  vec2 q = 100.0 * uv;
  bool inside = P[0] <= q.x && q.x <= 100.0 - P[1] && P[2] <= q.y && q.y <= 100.0 - P[3];
  if (!inside) o = vec4(0.0, 0.0, 0.0, 1.0);
  FX_END
}
