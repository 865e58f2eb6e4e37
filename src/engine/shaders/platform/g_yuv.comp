// A decoder's frame converted to RGB (Y, Cb, Cr, out; P: 0, 0, chroma shift x and y, bytes a
// sample, luma scale and offset, chroma scale and offset, Kr, Kb, luma columns and rows): at its
// own size, or built with YUV_STEP 2 (the pipeline g_yuv2) at half its size, each pixel the
// mean of a 2 x 2 block, as a bilinear fit to exactly half gives. The step is a constant so that
// the CPU driver unrolls the block. The planes arrive as decoded, packed into rgba8 texels:
// four 8-bit samples or two 16-bit little-endian ones a texel. Chroma is read as the CPU path reads it: the column
// covering the pixel, rows interpolated between centred chroma rows when chroma has half the
// rows. Written without branches on the layout: the CPU driver would run both sides.
//
// A thread makes the pixels of one luma texel (4 at 8 bits, 2 at 16; dispatched with that span):
// they share their texels, so each is fetched once instead of once a pixel. A thread's block is
// aligned to texels, so its luma columns lie in `step` luma texels and their chroma in at most
// `step` chroma texels a row.
#ifndef YUV_STEP
#define YUV_STEP 1
#endif

// The sample of column x in the texel t holding it.
float sampleIn(vec4 t, int x, int wide) {
  float byte8 = dot(t, vec4(equal(ivec4(x & 3), ivec4(0, 1, 2, 3))));
  vec2 pair = mix(t.rg, t.ba, float(x & 1));
  float word = round(pair.x * 255.0) + round(pair.y * 255.0) * 256.0;
  return wide == 2 ? word : round(byte8 * 255.0);
}

// One luma sample's colour, clipped to 0..1 as the 16-bit RGB of the CPU path is.
vec3 yuvColour(float y, float cb, float cr) {
  y = y * P[5] + P[6];
  cb = cb * P[7] + P[8];
  cr = cr * P[7] + P[8];
  float kr = P[9], kb = P[10], kg = 1.0 - kr - kb;
  float r = y + 2.0 * (1.0 - kr) * cr;
  float b = y + 2.0 * (1.0 - kb) * cb;
  float gr = (y - kr * r - kb * b) / kg;
  return clamp(vec3(r, gr, b), 0.0, 1.0);
}

void g_yuv() {
  const int step = YUV_STEP;
  int wide = int(P[4]);
  int n = 4 / wide, texelShift = 3 - wide;
  ivec2 size = imageSize(W3);
  ivec2 g0 = pixelID() * ivec2(n, 1);
  if (outsideOf(g0, size)) return;
  ivec2 shift = ivec2(P[2], P[3]);
  ivec2 luma = ivec2(P[11], P[12]);
  int rows = (luma.y + (1 << shift.y) - 1) >> shift.y;
  int lumaLast = textureSize(T0, 0).x - 1, chromaLast = textureSize(T1, 0).x - 1;
  int lumaBase = (g0.x * step) >> texelShift;
  int chromaBase = ((g0.x * step) >> shift.x) >> texelShift;
  vec3 sum[4] = vec3[4](vec3(0.0), vec3(0.0), vec3(0.0), vec3(0.0));
  for (int j = 0; j < step; ++j) {
    int y = min(g0.y * step + j, luma.y - 1);
    float at = shift.y == 1 ? (float(y) + 0.5) * 0.5 - 0.5 : float(y);
    int r0 = int(floor(at));
    float f = at - float(r0);
    ivec2 cy = clamp(ivec2(r0, r0 + 1), 0, rows - 1);
    vec4 L[step], B0[step], B1[step], R0[step], R1[step];
    for (int k = 0; k < step; ++k) {
      L[k] = texelFetch(T0, ivec2(min(lumaBase + k, lumaLast), y), 0);
      int c = min(chromaBase + k, chromaLast);
      B0[k] = texelFetch(T1, ivec2(c, cy.x), 0);
      B1[k] = texelFetch(T1, ivec2(c, cy.y), 0);
      R0[k] = texelFetch(T2, ivec2(c, cy.x), 0);
      R1[k] = texelFetch(T2, ivec2(c, cy.y), 0);
    }
    for (int i = 0; i < 4; ++i) {
      if (i >= n) break;
      for (int s = 0; s < step; ++s) {
        int x = min((g0.x + i) * step + s, luma.x - 1);
        int cx = x >> shift.x;
        bool lumaFirst = (x >> texelShift) == lumaBase, chromaFirst = (cx >> texelShift) == chromaBase;
        float yv = sampleIn(lumaFirst ? L[0] : L[step - 1], x, wide);
        float cb = mix(sampleIn(chromaFirst ? B0[0] : B0[step - 1], cx, wide),
                       sampleIn(chromaFirst ? B1[0] : B1[step - 1], cx, wide), f);
        float cr = mix(sampleIn(chromaFirst ? R0[0] : R0[step - 1], cx, wide),
                       sampleIn(chromaFirst ? R1[0] : R1[step - 1], cx, wide), f);
        sum[i] += yuvColour(yv, cb, cr);
      }
    }
  }
  for (int i = 0; i < 4; ++i)
    if (i < n && g0.x + i < size.x) imageStore(W3, g0 + ivec2(i, 0), vec4(sum[i] / float(step * step), 1.0));
}
