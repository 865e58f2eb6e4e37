// fx_glints: a star filter. Each branch gathers the bright samples along a line, fading with
// distance and, with iris, shifting in hue along its length.
void fx_glints(FX_ARGS) {
  FX_BEGIN
  int menu = int(floor(P[2] + 0.5));
  int nb = menu <= 0 ? 4 : (menu == 1 ? 6 : 8);
  float th = P[0], ik = 1.0 / max(1.0 - th, 0.02);
  vec3 acc = vec3(0.0);
  for (int b = 0; b < nb; ++b) {
    float a = (P[3] + 360.0 * float(b) / float(nb)) * 0.0174532925;
    vec2 dir = vec2(cos(a), sin(a)) * P[1] / res;
    for (int j = 0; j < 20; ++j) {
      float t = float(j) / 20.0;
      vec3 c = texture(src, uv + dir * t).rgb;
      float k = clamp((dot(c, LUMA) - th) * ik, 0.0, 1.0);
      k *= k;
      float fall = (1.0 - t) * (1.0 - t / 2.0);
      vec3 tint = mix(vec3(1.0), 1.5 * hueColor(300.0 * t), P[5]);
      acc += c * k * fall * tint;
    }
  }
  o.rgb = s.rgb + 0.2 * acc * P[4];
  FX_END
}
