// fx_lightleak: a warm leak entering from one side, shaped by two drifting fbm fields and a
// slow flicker; it adds light only where the picture has room left below white.
void fx_lightleak(FX_ARGS) {
  FX_BEGIN
  float asp = I.width / I.height;
  float t = I.time * P[5];
  vec2 q = vec2(uv.x * asp, uv.y);
  float n1 = fbm(1.6 * q + vec2(0.35 * t, 0.12 * t), P[6], 4);
  float n2 = fbm(0.9 * q - vec2(0.2 * t, -0.27 * t), P[6] + 9.0, 3);
  float e = max(P[4], 0.02);
  int side = int(floor(P[3] + 0.5));
  float edge = 0.5;
  if (side == 0) edge = below(0.0, e, uv.x);
  else if (side == 1) edge = smoothstep(1.0 - e, 1.0, uv.x);
  else if (side == 2) edge = below(0.0, e, uv.y);
  else if (side == 3) edge = smoothstep(1.0 - e, 1.0, uv.y);
  float leak = smoothstep(0.4, 0.8, n1 + 0.9 * (edge - 0.5));
  vec3 col = mix(hueColor(P[1]), hueColor(P[2]), smoothstep(0.3, 0.7, n2));
  col = mix(col, vec3(1.0, 0.95, 0.85), 0.5 * leak * leak);
  float flick = 0.85 + 0.15 * sin(6.3 * t + P[6]);
  o.rgb = s.rgb + col * leak * P[0] * flick * (1.0 - clamp(s.rgb, 0.0, 1.0));
  FX_END
}
