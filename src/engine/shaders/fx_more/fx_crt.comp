// fx_crt: a tube screen: bulged glass, rounded corners, scan lines and an RGB aperture mask.
// P: 0 curvature, 1 scan lines, 2 mask, 3 line size px, 4 brightness, 5 corner radius, 6 flicker.
void fx_crt(FX_ARGS) {
  FX_BEGIN
  vec2 d = 2.0 * uv - 1.0;
  d *= 1.0 + 0.5 * P[0] * vec2(d.y * d.y, d.x * d.x);
  vec2 q = d / 2.0 + 0.5;
  float rc = max(P[5], 0.005);
  vec2 cd = max(abs(d) - (1.0 - rc), 0.0);
  float corner = below(rc - 0.004, rc + 0.004, length(cd));

  vec3 c = texture(src, q).rgb;
  // Phosphor glow spills a little onto the neighbours.
  vec2 px2 = vec2(2.0 / I.width, 0.0);
  vec3 gl = 0.5 * (texture(src, q - px2).rgb + texture(src, q + px2).rgb);
  c = mix(c, max(c, gl), 0.3);

  float sz = max(P[3], 1.0);
  float scan = 1.0 - 0.55 * P[1] * (0.5 - 0.5 * cos(6.2831853 * q.y * I.height / sz));
  int idx = int(float(gid.x) / max(sz / 3.0, 1.0)) % 3;
  vec3 mask = idx == 0 ? vec3(1.0, 0.35, 0.35) : idx == 1 ? vec3(0.35, 1.0, 0.35) : vec3(0.35, 0.35, 1.0);
  c *= mix(vec3(1.0), mask, P[2]) * scan * P[4];
  c *= 1.0 - 0.08 * P[6] * (0.5 + 0.5 * sin(120.0 * I.time));
  c *= 1.0 - 0.18 * dot(d, d);
  bool outside = any(lessThan(q, vec2(0.0))) || any(greaterThan(q, vec2(1.0)));
  o.rgb = outside ? vec3(0.0) : c * corner;
  FX_END
}
