// fx_skintexture: synthetic skin relief (pores, fine grain, wrinkles) lit from the top left and
// laid on the luminance only, so the skin's colour stays. P: 0 intensity, 1 pore size px,
// 2 density, 3 depth, 4 fine grain, 5 grain size px, 6 wrinkles, 7 wrinkle angle, 8 relief,
// 9 skin only, 10 midtones, 11 blend, 12 seed.
float fx_skintexture_hash(vec2 p) { return fract(sin(dot(p, vec2(127.1, 311.7))) * 43758.5453); }
vec2 fx_skintexture_hash2(vec2 p) {
  return vec2(fx_skintexture_hash(p), fract(sin(dot(p, vec2(269.5, 183.3))) * 43758.5453));
}

// Value noise on the integer lattice with a smooth step.
float fx_skintexture_vnoise(vec2 p) {
  vec2 i = floor(p), f = fract(p);
  vec2 u = f * f * (3.0 - 2.0 * f);
  float a = fx_skintexture_hash(i), b = fx_skintexture_hash(i + vec2(1.0, 0.0));
  float c = fx_skintexture_hash(i + vec2(0.0, 1.0)), d = fx_skintexture_hash(i + vec2(1.0, 1.0));
  return mix(mix(a, b, u.x), mix(c, d, u.x), u.y);
}

// Height of the skin at pixel p: 0 is flat, pores and wrinkles go down.
float fx_skintexture_height(vec2 p, float seed) {
  // Pores: at most one per cell, at a random place and size; sparse cells keep none.
  float cell = max(2.0, 2.2 * P[1]);
  vec2 q = p / cell;
  vec2 base = floor(q);
  float pores = 0.0;
  for (int j = -1; j <= 1; ++j)
    for (int i = -1; i <= 1; ++i) {
      vec2 c = base + vec2(float(i), float(j));
      vec2 r = fx_skintexture_hash2(c + seed);
      if (r.x > P[2]) continue;
      vec2 pos = c + 0.15 + 0.7 * fx_skintexture_hash2(1.37 * c + seed + 11.0);
      float sz = 0.25 + 0.75 * r.y * r.y;
      float rad = max(0.02, sz * P[1] / cell * 0.45);
      float d = length(q - pos) / rad;
      pores = max(pores, exp(-d * d) * (0.35 + 0.65 * sz));
    }
  float h = -pores * P[3];

  // Fine relief: two octaves of noise and a diagonal cross-hatch of thin ridges.
  vec2 g = p / max(P[5], 0.5);
  float n = 0.65 * fx_skintexture_vnoise(g + 3.1 * seed) + 0.35 * fx_skintexture_vnoise(2.03 * g + 17.0);
  vec2 d1 = vec2(g.x + g.y, g.y - g.x) * 0.7071;
  float x1 = 1.0 - abs(2.0 * fx_skintexture_vnoise(vec2(0.18 * d1.x, 1.1 * d1.y) + seed) - 1.0);
  float x2 = 1.0 - abs(2.0 * fx_skintexture_vnoise(vec2(0.18 * d1.y, 1.1 * d1.x) + seed + 5.3) - 1.0);
  float hatch = pow(x1, 8.0) + pow(x2, 8.0);
  h += ((n - 0.5) * 0.6 - 0.35 * hatch) * P[4];

  // Wrinkles: ridged noise stretched along the angle P7.
  float a = radians(P[7]);
  vec2 rp = vec2(cos(a) * p.x - sin(a) * p.y, sin(a) * p.x + cos(a) * p.y);
  vec2 wq = vec2(rp.x / max(1.0, 14.0 * P[1]), rp.y / max(1.0, 1.6 * P[1]));
  float w = 1.0 - abs(2.0 * fx_skintexture_vnoise(wq + 0.7 * seed) - 1.0);
  h -= pow(w, 6.0) * P[6];
  return h;
}

void fx_skintexture(FX_ARGS) {
  FX_BEGIN
  float seed = 13.17 * P[12] + 0.5;
  vec2 p = vec2(gid);
  float h0 = fx_skintexture_height(p, seed);
  float h1 = fx_skintexture_height(p - vec2(max(1.0, 0.3 * P[1])), seed);
  // Grey texture around 0.5, lit by a light grazing from the top left.
  float t = clamp(0.5 + 0.22 * h0 + (h0 - h1) * P[8] * 0.6, 0.0, 1.0);
  int blend = int(floor(P[11] + 0.5));
  if (blend == 3) {
    o = vec4(t, t, t, 1.0);
  } else {
    float L = dot(s.rgb, LUMA);
    float L2;
    if (blend == 1) L2 = L < 0.5 ? 2.0 * L * t : 1.0 - 2.0 * (1.0 - L) * (1.0 - t);
    else if (blend == 2) L2 = L + 2.0 * t - 1.0;
    else L2 = (1.0 - 2.0 * t) * L * L + 2.0 * t * L;
    // Skin tones in Cb/Cr, so "skin only" leaves everything else alone.
    float cb = 0.5 - 0.169 * s.r - 0.331 * s.g + 0.5 * s.b;
    float cr = 0.5 + 0.5 * s.r - 0.419 * s.g - 0.081 * s.b;
    float skin = smoothstep(0.27, 0.31, cb) * (1.0 - smoothstep(0.49, 0.53, cb)) * smoothstep(0.51, 0.55, cr) *
                 (1.0 - smoothstep(0.67, 0.71, cr));
    float wSkin = mix(1.0, skin, P[9]);
    float midDist = clamp(2.0 * abs(L - 0.5), 0.0, 1.0);
    float mid = 1.0 - P[10] * midDist * midDist;
    float k = P[0] * wSkin * mid;
    o.rgb = s.rgb + (mix(L, L2, k) - L);
  }
  FX_END
}
