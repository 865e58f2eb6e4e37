// fx_hexmosaic: honeycomb cells, each filled with the colour at its centre, with grout joints
// and a bevel lit from the top left.
// P: 0 cell size px, 1 joints, 2 bevel.
void fx_hexmosaic(FX_ARGS) {
  FX_BEGIN
  vec2 pix = vec2(gid) + 0.5;
  float sz = max(P[0], 3.0);
  vec2 p = pix / sz;
  // Two interleaved rectangular lattices; the nearer of the two centres is the hexagon's.
  const vec2 r = vec2(1.0, 1.7320508);
  const vec2 h = r * 0.5;
  vec2 a = mod(p, r) - h;
  vec2 b = mod(p - h, r) - h;
  vec2 g = dot(a, a) < dot(b, b) ? a : b;
  vec3 col = texture(src, (p - g) * sz / res).rgb;
  vec2 ag = abs(g);
  // Distance to the hexagon's border, 0 on it.
  float edge = 0.5 - max(dot(ag, vec2(0.5, 0.8660254)), ag.x);
  float shade = 1.0 + dot(normalize(g + 0.00001), vec2(-0.7, -0.7)) * P[2] * 0.5 * below(0.0, 0.25, edge);
  float j = P[1] > 0.001 ? smoothstep(0.08 * P[1], 0.08 * P[1] + 1.5 / sz, edge) : 1.0;
  o.rgb = col * shade * j;
  FX_END
}
