// k_layer (under, top, out; P: opacity, mode): one timeline layer over the layers beneath it.
// The top is premultiplied; blend modes work on its straight colour.
void k_layer() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W2))) return;
  vec4 under = texelFetch(T0, g, 0);
  vec4 top = texelFetch(T1, g, 0);
  float a = clamp(top.a, 0.0, 1.0) * P[0];
  vec3 f = top.a > 0.0001 ? top.rgb / top.a : vec3(0.0);
  vec3 b = under.rgb;
  vec3 r = f;
  int mode = int(round(P[1]));
  if (mode == 1) r = b + f;
  else if (mode == 2) r = 1.0 - (1.0 - b) * (1.0 - f);
  else if (mode == 3) r = b * f;
  imageStore(W2, g, vec4(mix(b, r, a), max(under.a, a)));
}
