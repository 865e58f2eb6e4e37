// fx_dirblur: mean of 32 samples spread evenly over a segment of P0 pixels at P1 degrees, centred
// on the pixel. The tap count is fixed so the cost never depends on the settings.
void fx_dirblur(FX_ARGS) {
  FX_BEGIN
  float a = radians(P[1]);
  vec2 dir = vec2(cos(a), sin(a)) * P[0] / res;
  vec4 acc = vec4(0.0);
  for (int i = 0; i < 32; ++i) acc += texture(src, uv + dir * (float(i) / 31.0 - 0.5));
  o = acc / 32.0;
  FX_END
}
