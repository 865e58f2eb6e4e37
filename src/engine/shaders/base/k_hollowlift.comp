// k_hollowlift (beauty, origin, blur A, blur B, mask, out; P: intensity, colour, view): lightens
// hollows (under-eye, nasolabial folds). Where the wide blur B is brighter than the narrow blur A,
// the pixel sits in a hollow; the gain is floored at 1 so nothing is ever darkened.
void k_hollowlift() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W5))) return;
  vec4 beauty = texelFetch(T0, g, 0);
  vec3 origin = texelFetch(T1, g, 0).rgb;
  vec3 A = texelFetch(T2, g, 0).rgb;
  vec3 C = texelFetch(T3, g, 0).rgb;
  float mask = texelFetch(T4, g, 0).r;
  float la = dot(A, LUMA), lc = dot(C, LUMA);
  float gain = clamp((lc + 0.004) / (la + 0.004), 1.0, 2.2);
  float hollow = clamp(4.0 * (gain - 1.0), 0.0, 1.0);
  float k = clamp(P[0], 0.0, 1.0) * mask;
  vec3 o = beauty.rgb * mix(1.0, gain, k);
  // Chroma moves toward the neighbourhood's.
  o += ((C - lc) - (A - la)) * hollow * k * P[1];
  if (P[2] > 2.5) o = vec3(hollow * mask);
  else if (P[2] > 1.5) o = 0.5 + 4.0 * (origin - o);
  else if (P[2] > 0.5) o = mix(0.35 * origin, vec3(1.0), 0.8 * mask);
  imageStore(W5, g, vec4(o, beauty.a));
}
