// fx_radialblur: zoom blur, 32 samples on the line from the pixel towards the centre (P1, P2 in
// percent of the picture); P0 is how much of that line the samples cover.
void fx_radialblur(FX_ARGS) {
  FX_BEGIN
  vec2 c = vec2(P[1], P[2]) / 100.0;
  vec4 acc = vec4(0.0);
  for (int i = 0; i < 32; ++i) acc += texture(src, c + (uv - c) * (1.0 - P[0] * float(i) / 31.0));
  o = acc / 32.0;
  FX_END
}
