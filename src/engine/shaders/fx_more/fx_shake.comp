// fx_shake: hand-held or explosion shake: smooth noise moves and turns the frame, optionally
// zoomed in enough to hide the edges, with motion blur along the next 20 ms of the path.
// P: 0 amplitude px, 1 frequency Hz, 2 rotation degrees, 3 crop, 4 motion blur, 5 seed.

// Offset (x, y) and turn (z) at time t, each in -1..1.
vec3 fx_shake_at(float t, float f, float e) {
  float x = fbm(vec2(t * f, 3.1 * e), e, 3) - 0.5;
  float y = fbm(vec2(t * f, 3.1 * e + 17.0), e + 1.0, 3) - 0.5;
  float r = fbm(vec2(0.7 * t * f, 3.1 * e + 33.0), e + 2.0, 2) - 0.5;
  return 2.0 * vec3(x, y, r);
}

void fx_shake(FX_ARGS) {
  FX_BEGIN
  vec2 pix = vec2(gid) + 0.5;
  float e = P[5] + 1.0;
  vec3 a = fx_shake_at(I.time, P[1], e);
  vec3 b = fx_shake_at(I.time + 0.02, P[1], e);
  float zoom = P[3] > 0.5 ? 1.0 + 2.8 * P[0] / min(I.width, I.height) + 0.02 * abs(P[2]) : 1.0;
  int n = P[4] > 0.01 ? 8 : 1;
  vec4 acc = vec4(0.0);
  for (int i = 0; i < n; ++i) {
    float k = n == 1 ? 0.0 : P[4] * (float(i) / 7.0 - 0.5);
    vec3 sh = a + 2.0 * k * (b - a);
    vec2 p = rot(pix - res / 2.0, sh.z * P[2]) / zoom + sh.xy * P[0];
    acc += texture(src, (p + res / 2.0) / res);
  }
  o = acc / float(n);
  o.a = s.a;
  FX_END
}
