// k_mvwarp (retouch, plate, map, out, alpha out; P: mix, hide lost areas, view, offsets):
// carries a retouch painted on a reference frame onto the current plate through a motion map
// (u, v, confidence). The map holds absolute positions, or offsets from the pixel when P[3] is on.
void k_mvwarp() {
  ivec2 g = pixelID();
  ivec2 size = imageSize(W4);
  if (outsideOf(g, size)) return;
  vec2 uv = (vec2(g) + 0.5) / vec2(size);
  vec4 m = sampleClamp(T2, uv);
  float conf = mix(1.0, smoothstep(0.15, 0.85, m.z), clamp(P[1], 0.0, 1.0));
  if (P[3] > 0.5) m.xy += uv;
  vec4 r = sampleZero(T0, m.xy);
  float k = clamp(P[0], 0.0, 1.0) * conf;
  vec4 plate = texelFetch(T1, g, 0);
  float a = r.a * k;
  vec3 rgb = plate.rgb * (1.0 - a) + r.rgb * k;
  float view = P[2];
  if (view > 2.5) rgb = vec3(conf);
  else if (view > 1.5) rgb = vec3(0.5 + 8.0 * (m.x - uv.x), 0.5 + 8.0 * (m.y - uv.y), 0.5);
  else if (view > 0.5) rgb = r.rgb * k;
  imageStore(W3, g, vec4(rgb, max(plate.a, a)));
  imageStore(W4, g, vec4(a, a, a, 1.0));
}
