// A decoder's frame converted and fitted in one pass (Y, Cb, Cr, out; P: scale, offset x, offset
// y, transparent as g_conform; then luma width and height, chroma shift x and y, bytes a sample,
// significant bits, full range, Kr, Kb). The planes arrive as they were decoded, packed into
// rgba8 texels: four 8-bit samples or two 16-bit little-endian ones a texel.
float planeSample(sampler2D plane, ivec2 p, int wide) {
  if (wide == 2) {
    vec4 t = texelFetch(plane, ivec2(p.x >> 1, p.y), 0);
    vec2 b = (p.x & 1) == 0 ? t.rg : t.ba;
    return round(b.x * 255.0) + round(b.y * 255.0) * 256.0;
  }
  vec4 t = texelFetch(plane, ivec2(p.x >> 2, p.y), 0);
  int k = p.x & 3;
  return round((k == 0 ? t.r : k == 1 ? t.g : k == 2 ? t.b : t.a) * 255.0);
}

// A chroma plane at a luma sample as the CPU path reads it: the column covering it, rows
// interpolated between centred chroma rows when chroma has half the rows.
float chromaAt(sampler2D plane, ivec2 p, ivec2 shift, int rows, int wide) {
  int x = p.x >> shift.x;
  if (shift.y == 0) return planeSample(plane, ivec2(x, p.y), wide);
  float at = (float(p.y) + 0.5) * 0.5 - 0.5;
  int r0 = int(floor(at));
  float f = at - float(r0);
  return mix(planeSample(plane, ivec2(x, clamp(r0, 0, rows - 1)), wide),
             planeSample(plane, ivec2(x, clamp(r0 + 1, 0, rows - 1)), wide), f);
}

// One luma sample's colour, clipped to 0..1 as the 16-bit RGB of the CPU path is.
vec3 lumaColour(ivec2 p, ivec2 shift, int rows, int wide) {
  float y = planeSample(T0, p, wide);
  float cb = chromaAt(T1, p, shift, rows, wide), cr = chromaAt(T2, p, shift, rows, wide);
  float unit = exp2(P[9] - 8.0);  // 1 for 8 bits, 4 for 10
  if (P[10] > 0.5) {
    float top = exp2(P[9]) - 1.0;
    y /= top;
    cb = (cb - 128.0 * unit) / top;
    cr = (cr - 128.0 * unit) / top;
  } else {
    y = (y - 16.0 * unit) / (219.0 * unit);
    cb = (cb - 128.0 * unit) / (224.0 * unit);
    cr = (cr - 128.0 * unit) / (224.0 * unit);
  }
  float kr = P[11], kb = P[12], kg = 1.0 - kr - kb;
  float r = y + 2.0 * (1.0 - kr) * cr;
  float b = y + 2.0 * (1.0 - kb) * cb;
  float g = (y - kr * r - kb * b) / kg;
  return clamp(vec3(r, g, b), 0.0, 1.0);
}

void g_yuv() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W3))) return;
  bool transparent = P[3] > 0.5;
  ivec2 luma = ivec2(P[4], P[5]);
  ivec2 shift = ivec2(P[6], P[7]);
  int wide = int(P[8]);
  vec2 s = (vec2(g) + 0.5 - vec2(P[1], P[2])) / P[0];
  if (s.x < 0.0 || s.y < 0.0 || s.x > float(luma.x) || s.y > float(luma.y)) {
    imageStore(W3, g, vec4(0.0, 0.0, 0.0, transparent ? 0.0 : 1.0));
    return;
  }
  // Bilinear between the four nearest samples' colours, edges clamped, as g_conform samples.
  vec2 q = s - 0.5;
  ivec2 i0 = ivec2(floor(q));
  vec2 f = q - vec2(i0);
  ivec2 a = clamp(i0, ivec2(0), luma - 1), b = clamp(i0 + 1, ivec2(0), luma - 1);
  int rows = (luma.y + (1 << shift.y) - 1) >> shift.y;
  vec3 top = mix(lumaColour(a, shift, rows, wide), lumaColour(ivec2(b.x, a.y), shift, rows, wide), f.x);
  vec3 bottom = mix(lumaColour(ivec2(a.x, b.y), shift, rows, wide), lumaColour(b, shift, rows, wide), f.x);
  imageStore(W3, g, vec4(mix(top, bottom, f.y), 1.0));
}
