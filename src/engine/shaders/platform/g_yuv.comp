// A decoder's frame converted to RGB (Y, Cb, Cr, out; P: 0, 0, chroma shift x and y, bytes a
// sample, luma scale and offset, chroma scale and offset, Kr, Kb, luma columns and rows): at its
// own size, or built with YUV_STEP 2 (the pipeline g_yuv2) at half its size, each pixel the
// mean of a 2 x 2 block, as a bilinear fit to exactly half gives. The step is a constant so that
// the CPU driver unrolls the block. The planes arrive as decoded, packed into rgba8 texels:
// four 8-bit samples or two 16-bit little-endian ones a texel. Chroma is read as the CPU path reads it: the column
// covering the pixel, rows interpolated between centred chroma rows when chroma has half the
// rows. Written without branches on the layout: the CPU driver would run both sides.
#ifndef YUV_STEP
#define YUV_STEP 1
#endif
float planeSample(sampler2D plane, ivec2 p, int wide) {
  vec4 t = texelFetch(plane, ivec2(p.x >> (3 - wide), p.y), 0);
  float byte8 = dot(t, vec4(equal(ivec4(p.x & 3), ivec4(0, 1, 2, 3))));
  vec2 pair = mix(t.rg, t.ba, float(p.x & 1));
  float word = round(pair.x * 255.0) + round(pair.y * 255.0) * 256.0;
  return wide == 2 ? word : round(byte8 * 255.0);
}

float chromaAt(sampler2D plane, ivec2 p, ivec2 shift, int rows, int wide) {
  int x = p.x >> shift.x;
  float at = shift.y == 1 ? (float(p.y) + 0.5) * 0.5 - 0.5 : float(p.y);
  int r0 = int(floor(at));
  float f = at - float(r0);
  return mix(planeSample(plane, ivec2(x, clamp(r0, 0, rows - 1)), wide),
             planeSample(plane, ivec2(x, clamp(r0 + 1, 0, rows - 1)), wide), f);
}

// One luma sample's colour, clipped to 0..1 as the 16-bit RGB of the CPU path is.
vec3 lumaColour(ivec2 p, ivec2 shift, int rows, int wide) {
  float y = planeSample(T0, p, wide) * P[5] + P[6];
  float cb = chromaAt(T1, p, shift, rows, wide) * P[7] + P[8];
  float cr = chromaAt(T2, p, shift, rows, wide) * P[7] + P[8];
  float kr = P[9], kb = P[10], kg = 1.0 - kr - kb;
  float r = y + 2.0 * (1.0 - kr) * cr;
  float b = y + 2.0 * (1.0 - kb) * cb;
  float gr = (y - kr * r - kb * b) / kg;
  return clamp(vec3(r, gr, b), 0.0, 1.0);
}

void g_yuv() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W3))) return;
  const int step = YUV_STEP;
  ivec2 shift = ivec2(P[2], P[3]);
  int wide = int(P[4]);
  ivec2 luma = ivec2(P[11], P[12]);
  int rows = (luma.y + (1 << shift.y) - 1) >> shift.y;
  vec3 sum = vec3(0.0);
  for (int j = 0; j < step; ++j)
    for (int i = 0; i < step; ++i) sum += lumaColour(min(g * step + ivec2(i, j), luma - 1), shift, rows, wide);
  imageStore(W3, g, vec4(sum / float(step * step), 1.0));
}
