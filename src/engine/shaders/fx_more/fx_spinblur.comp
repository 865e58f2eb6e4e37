// fx_spinblur: the mean of 40 reads along the arc through the pixel about the centre
// (P1, P2 in percent), covering P0 degrees; a per-pixel jitter hides the steps.
void fx_spinblur(FX_ARGS) {
  FX_BEGIN
  float asp = I.width / I.height;
  vec2 c = vec2(P[1], P[2]) / 100.0;
  vec2 d = (uv - c) * vec2(asp, 1.0);
  float j = hash2(gid.x, gid.y, 5u) - 0.5;
  vec3 acc = vec3(0.0);
  for (int i = 0; i < 40; ++i) {
    float t = (float(i) + j) / 39.0 - 0.5;
    acc += texture(src, c + rot(d, P[0] * t) / vec2(asp, 1.0)).rgb;
  }
  o.rgb = acc / 40.0;
  FX_END
}
