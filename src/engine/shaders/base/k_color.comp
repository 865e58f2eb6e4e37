// k_color (in, mask, out; P = exposure, lift, gamma, gain, sat, temp, useMask, pad): the colour
// corrector. Exposure in stops, lift toward white, gain, gamma, a warm/cool shift and saturation
// around luminance; the mask (when used) blends from the source. Alpha is left as it was.
void k_color() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W2))) return;
  vec4 s = texelFetch(T0, g, 0);
  vec3 c = s.rgb * exp2(P[0]);
  c += P[1] * (1.0 - c);
  c *= P[3];
  c = pow(max(c, vec3(0.0)), vec3(1.0 / P[2]));
  c.r += P[5] * 0.06;
  c.b -= P[5] * 0.06;
  float l = dot(c, LUMA);
  c = l + (c - l) * P[4];
  float m = P[6] > 0.5 ? texelFetch(T1, g, 0).r : 1.0;
  imageStore(W2, g, vec4(mix(s.rgb, c, m), s.a));
}
