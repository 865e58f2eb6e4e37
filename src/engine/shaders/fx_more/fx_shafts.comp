// fx_shafts: light rays from a centre. Bright samples on the way towards the centre are
// gathered with a decaying weight; a slow angular noise breaks the glow into separate beams.
void fx_shafts(FX_ARGS) {
  FX_BEGIN
  vec2 c = vec2(P[0], P[1]) / 100.0;
  vec2 d = (c - uv) * P[2] / 64.0;
  // Starting each pixel at a hashed fraction of a step hides the banding of 64 steps.
  vec2 q = uv + d * hash2(gid.x, gid.y, 3u);
  float th = P[3], ik = 1.0 / max(1.0 - th, 0.02);
  vec3 acc = vec3(0.0);
  float ws = 0.0, w = 1.0;
  for (int i = 0; i < 64; ++i) {
    q += d;
    vec3 t = texture(src, q).rgb;
    float k = clamp((dot(t, LUMA) - th) * ik, 0.0, 1.0);
    acc += t * k * w;
    ws += w;
    w *= 0.965;
  }
  vec3 tint = mix(vec3(1.0), hueColor(P[5]), P[6]);
  float asp = I.width / I.height;
  vec2 dc = normalize((uv - c) * vec2(asp, 1.0) + 0.00001);
  vec2 tw = vec2(0.08 * I.time, 0.0);
  float nb = 0.6 * noise(12.0 * dc + tw, 7.0) + 0.4 * noise(31.0 * dc - tw, 8.0);
  float beams = mix(1.0, 1.6 * clamp(2.0 * nb - 0.45, 0.0, 1.0), P[8]);
  vec3 rays = acc / ws * tint * P[4] * 2.0 * beams;
  o.rgb = P[7] > 0.5 ? rays : s.rgb + rays * (1.0 - 0.5 * clamp(s.rgb, 0.0, 1.0));
  FX_END
}
