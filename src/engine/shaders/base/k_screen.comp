// k_screen (in, glow, out; P = thresh, intensity, warmth, pad): the blurred glow screened over the
// picture. Both sides are clipped to 0..1 first, so overbright values do not survive a glow.
void k_screen() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W2))) return;
  vec4 s = texelFetch(T0, g, 0);
  vec3 v = clamp(s.rgb, 0.0, 1.0);
  vec3 gl = clamp(texelFetch(T1, g, 0).rgb * P[1], 0.0, 1.0);
  imageStore(W2, g, vec4(1.0 - (1.0 - v) * (1.0 - gl), s.a));
}
