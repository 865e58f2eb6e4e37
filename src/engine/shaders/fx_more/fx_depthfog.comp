// fx_depthfog: fog thickening with distance (the depth picture in aux, near white), broken by
// drifting wisps and optionally kept low in the frame.
void fx_depthfog(FX_ARGS) {
  FX_BEGIN
  float asp = I.width / I.height;
  float dist = 1.0 - depth(aux, uv, P[9]);
  float f = smoothstep(P[1], max(P[2], P[1] + 0.01), dist);
  float vol = fbm(vec2(uv.x * asp, uv.y) * 3.0 + vec2(0.1 * I.time * P[7], 0.0), 4.0, 4);
  f *= clamp(1.0 + 2.0 * (vol - 0.5) * P[6], 0.0, 1.0);
  f *= mix(1.0, smoothstep(0.15, 0.9, uv.y), P[8]);
  f = clamp(f * P[0], 0.0, 1.0);
  vec3 fog = mix(vec3(1.0), hueColor(P[3]), P[4]) * P[5];
  o.rgb = mix(s.rgb, fog, f);
  FX_END
}
