// k_diffmatte (f, p, out; P = low, high): where f differs from p, by its largest channel difference,
// kept only where f is opaque. Finds what a retouch changed.
void k_diffmatte() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W2))) return;
  vec4 f = texelFetch(T0, g, 0);
  vec3 d = abs(f.rgb - texelFetch(T1, g, 0).rgb);
  float a = smoothstep(P[0], P[1], max(d.r, max(d.g, d.b))) * clamp(f.a, 0.0, 1.0);
  imageStore(W2, g, vec4(a, a, a, 1.0));
}
