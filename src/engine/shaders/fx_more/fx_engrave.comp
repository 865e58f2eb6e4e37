// fx_engrave: intaglio lines. Parallel lines that thicken in the shadows and bend a little with
// the picture, on paper of the chosen ink.
// P: 0 line spacing px, 1 angle, 2 wave, 3 contrast, 4 ink (0 black, 1 sepia, 2 blue).
void fx_engrave(FX_ARGS) {
  FX_BEGIN
  vec2 pix = vec2(gid) + 0.5;
  float sp = max(P[0], 2.0);
  vec2 q = rot(pix, -P[1]);
  float Lc = clamp((dot(s.rgb, LUMA) - 0.5) * P[3] + 0.5, 0.0, 1.0);
  float wv = sin(0.9 * q.x / sp) * P[2] * sp * 0.6 + (Lc - 0.5) * P[2] * sp;
  // f: 0 on a line's axis, 1 half-way between two lines.
  float f = 2.0 * abs(fract((q.y + wv) / sp) - 0.5);
  float thick = 1.0 - Lc;
  float aa = 1.5 / sp;
  float ink = below(thick - aa, thick + aa, f);
  int kind = int(floor(P[4] + 0.5));
  vec3 paper = vec3(0.97), inkColour = vec3(0.03);
  if (kind == 1) {
    paper = vec3(0.96, 0.91, 0.80);
    inkColour = vec3(0.25, 0.15, 0.08);
  } else if (kind == 2) {
    paper = vec3(0.95, 0.96, 0.98);
    inkColour = vec3(0.05, 0.12, 0.35);
  }
  o.rgb = mix(paper, inkColour, ink);
  FX_END
}
