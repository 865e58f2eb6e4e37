// fx_flare: a lens flare drawn analytically around a light (P0, P1 in percent): core, streak,
// spikes, an iridescent ring and ghosts placed on the line through the picture's centre.
void fx_flare(FX_ARGS) {
  FX_BEGIN
  float asp = I.width / I.height;
  vec2 lp = vec2(P[0], P[1]) / 100.0;
  vec2 p = (uv - 0.5) * vec2(asp, 1.0);
  vec2 l = (lp - 0.5) * vec2(asp, 1.0);
  float sz = max(P[3], 0.05);
  vec3 tint = hueColor(P[7]);
  vec3 warm = mix(vec3(1.0), tint, 0.5);
  vec2 dl = p - l;
  float r = length(dl);

  vec3 f = warm * (1.2 * exp(-18.0 * r / sz) + 0.25 * exp(-4.0 * r / sz));
  f += mix(vec3(0.6, 0.8, 1.0), tint, 0.3) * P[6] * exp(-220.0 * abs(dl.y) / sz) * exp(-1.6 * abs(dl.x) / sz);
  float ang = atan(dl.y, dl.x);
  f += warm * 0.25 * pow(max(0.0, sin(6.0 * ang + 0.5)), 8.0) * exp(-6.0 * r / sz);
  vec3 ringAt = vec3(0.30, 0.315, 0.33) * sz;
  vec3 ringD = (r - ringAt) * 40.0 / sz;
  f += exp(-ringD * ringD) * 0.35 * P[5];
  for (int i = 0; i < 6; ++i) {
    vec2 gc = l * FLARE_GHOST_POS[i];
    float gr = FLARE_GHOST_RADIUS[i] * sz;
    float dg = length(p - gc);
    vec3 col = mix(hueColor(P[7] + 47.0 * float(i)), vec3(1.0), 0.35);
    vec3 shape = vec3(below(0.6 * gr, 1.04 * gr, dg), below(0.6 * gr, gr, dg), below(0.55 * gr, 0.96 * gr, dg));
    f += col * shape * 0.18 * P[4];
  }
  // Following the source's brightness hides the flare when the light is covered.
  float vis = P[8] > 0.5 ? smoothstep(0.25, 0.85, dot(texture(src, lp).rgb, LUMA)) : 1.0;
  o.rgb = s.rgb + f * P[2] * vis;
  FX_END
}
