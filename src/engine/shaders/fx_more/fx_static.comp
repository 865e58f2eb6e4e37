// fx_static: a badly tuned television: snow, new 30 times a second, and a slow rolling bar.
// Above 540 lines the grain grows so it reads the same at every size. P: 0 snow, 1 bar,
// 2 colour snow, 3 seed.
void fx_static(FX_ARGS) {
  FX_BEGIN
  uint fr = uint(int(30.0 * I.time) + int(31.0 * P[3]));
  float scale = max(1.0, I.height / 540.0);
  uvec2 g = uvec2(ivec2(vec2(gid) / scale));
  vec3 n = vec3(hash2(g.x, g.y, fr));
  if (P[2] > 0.5) n = vec3(hash2(g.x, g.y, fr), hash2(g.x, g.y, fr + 7u), hash2(g.x, g.y, fr + 13u));
  float bar = P[1] * smoothstep(0.8, 1.0, 0.5 + 0.5 * sin(6.2831853 * 1.5 * (uv.y + 0.35 * I.time)));
  vec3 c = mix(s.rgb, n, clamp(P[0], 0.0, 1.0));
  o.rgb = c * (1.0 - 0.35 * bar) + 0.08 * bar;
  FX_END
}
