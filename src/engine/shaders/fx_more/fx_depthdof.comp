// fx_depthdof: a depth-of-field blur. Each of 64 disc taps contributes when its own circle of
// confusion reaches this pixel; bright taps weigh more, like bokeh.
float fx_depthdof_coc(float z) {
  float range = max(P[1], 0.001);
  return clamp((abs(z - P[0]) - range / 2.0) / 0.3, 0.0, 1.0) * P[2];
}

void fx_depthdof(FX_ARGS) {
  FX_BEGIN
  float R = P[2];
  float zc = depth(aux, uv, P[5]);
  float cc = fx_depthdof_coc(zc);
  vec3 acc = s.rgb;
  float ws = 1.0;
  if (R > 0.5) {
    for (int i = 0; i < 64; ++i) {
      vec2 dk = disc(float(i), 64.0);
      float len = R * length(dk);
      vec2 q = uv + R * dk / res;
      float zj = depth(aux, q, P[5]);
      float cj = fx_depthdof_coc(zj);
      // A sharp foreground takes no halo from the background behind it.
      float reach = zj >= zc - 0.02 ? cj : min(cj, cc);
      vec3 t = texture(src, q).rgb;
      float w = clamp(reach - len + 1.0, 0.0, 1.0) * (1.0 + 6.0 * P[3] * max(dot(t, LUMA) - 0.75, 0.0));
      acc += t * w;
      ws += w;
    }
  }
  vec3 c = acc / ws;
  if (P[4] > 0.5) c = mix(c, vec3(0.2, 1.0, 0.4), 0.45 * (1.0 - clamp(cc / max(0.15 * R, 0.5), 0.0, 1.0)));
  o = vec4(c, s.a);
  FX_END
}
