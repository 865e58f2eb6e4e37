// fx_tiltshift: a sharp band (possibly tilted) with a disc blur growing outside it, then the
// saturated, contrasty colours of a miniature.
void fx_tiltshift(FX_ARGS) {
  FX_BEGIN
  float asp = I.width / I.height;
  vec2 q = rot(vec2((uv.x - 0.5) * asp, uv.y - P[0] / 100.0), -P[4]);
  float d = abs(q.y) - P[1] / 200.0;
  float k = smoothstep(0.0, max(P[2] / 100.0, 0.001), d);
  float rad = k * P[3];
  vec3 c = s.rgb;
  if (rad > 0.5) {
    vec3 acc = vec3(0.0);
    float ws = 0.0;
    for (int i = 0; i < 48; ++i) {
      vec3 t = texture(src, uv + rad * disc(float(i), 48.0) / res).rgb;
      // Highlights weigh more, so they open into small bokeh discs.
      float w = 1.0 + 4.0 * max(dot(t, LUMA) - 0.8, 0.0);
      acc += t * w;
      ws += w;
    }
    c = acc / ws;
  }
  float l = dot(c, LUMA);
  c = max(l + (c - l) * P[5], vec3(0.0));
  c = max((c - 0.5) * P[6] + 0.5, vec3(0.0));
  o = vec4(c, s.a);
  FX_END
}
