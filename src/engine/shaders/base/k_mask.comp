// k_mask (out; P = cx, cy, rx, ry, rot, feather, invert, pad): a soft ellipse.
// Centre and radii are fractions of the output size, rot in radians. The step ends just past 1 so
// that a zero feather still gives a hard edge rather than a step with equal ends.
void k_mask() {
  ivec2 g = pixelID();
  ivec2 size = imageSize(W0);
  if (outsideOf(g, size)) return;
  vec2 q = vec2(g) + 0.5;
  vec2 wh = vec2(size);
  vec2 c = vec2(P[0], P[1]) * wh;
  vec2 r = max(vec2(1.0), vec2(P[2], P[3]) * wh);
  vec2 d = q - c;
  float cs = cos(P[4]), sn = sin(P[4]);
  vec2 l = vec2(d.x * cs + d.y * sn, -d.x * sn + d.y * cs);
  float dist = length(l / r);
  float m = 1.0 - smoothstep(1.0 - P[5], 1.0001, dist);
  if (P[6] > 0.5) m = 1.0 - m;
  imageStore(W0, g, vec4(m, m, m, 1.0));
}
