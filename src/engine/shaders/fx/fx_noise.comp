// fx_noise: integer-hashed noise, new at each 1/50 s so it stays stable between renders of one
// frame; P2 picks another sequence. Colour noise draws green and blue from shifted seeds.
void fx_noise(FX_ARGS) {
  FX_BEGIN
  uint t = uint(int(P[2]) + int(I.time * 50.0));
  vec3 n;
  n.r = hash2(gid.x, gid.y, t) * 2.0 - 1.0;
  if (P[1] > 0.5) {
    n = vec3(n.r);
  } else {
    n.g = hash2(gid.x, gid.y, t + 17u) * 2.0 - 1.0;
    n.b = hash2(gid.x, gid.y, t + 31u) * 2.0 - 1.0;
  }
  o.rgb = s.rgb + n * P[0];
  FX_END
}
