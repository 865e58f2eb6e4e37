// fx_sketch: pencil drawing. The ratio of the picture to its blur (aux) darkens edges and
// shadows the way a dodge blend does; hatching in the dark areas and paper grain on top.
// P: 0 stroke size px (the pre-blur), 1 stroke strength, 2 hatching, 3 colour, 4 paper grain.
void fx_sketch(FX_ARGS) {
  FX_BEGIN
  float l = dot(s.rgb, LUMA);
  float lb = dot(texture(aux, uv).rgb, LUMA);
  float d = pow(clamp(l / max(lb, 0.001), 0.0, 1.0), 4.0 * max(P[1], 0.1));
  d *= mix(1.0, 0.5 + 0.5 * smoothstep(0.0, 0.75, lb), 0.7);
  vec2 x = vec2(gid);
  // Diagonal strokes, their phase wandering with a slow noise so they look hand-drawn.
  float hat = 0.5 + 0.5 * sin(0.9 * (x.x + x.y) + 6.0 * noise(0.05 * x, 3.0));
  d *= 1.0 - 0.6 * P[2] * below(0.15, 0.6, lb) * (1.0 - hat);
  float paper = 1.0 - 0.12 * P[4] * noise(0.7 * x, 9.0);
  vec3 tinted = clamp(mix(vec3(d), s.rgb * d / max(l, 0.05), 0.6), 0.0, 1.0);
  o.rgb = mix(vec3(d), tinted, P[3]) * paper;
  FX_END
}
