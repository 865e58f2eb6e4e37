// fx_comp: Front (1) over Back (2) with a blend mode, per-input premultiplication, a matte on
// Front's alpha and a Porter-Duff composition. Writes dst itself: the matte shapes Front's alpha
// here instead of limiting the result. P: 0 mode, 1 opacity, 7 prem1, 8 prem2, 9 matte1,
// 10 compo, 11 clamp, 12 outprem, 15 no Back.
int fx_comp_round(float v) { return int(floor(v + 0.5)); }

vec3 fx_comp_blend(int mode, vec3 b, vec3 f) {
  switch (mode) {
    case 1: return b + f;
    case 2: return 1.0 - (1.0 - b) * (1.0 - f);
    case 3: return b * f;
    case 4: return mix(2.0 * b * f, 1.0 - 2.0 * (1.0 - b) * (1.0 - f), step(0.5, b));
    case 5: return abs(b - f);
    case 6: return max(b, f);
    case 7: return min(b, f);
    case 8: return max(b - f, 0.0);
    case 9: return max(f - b, 0.0);
    default: return f;
  }
}

void fx_comp(FX_ARGS) {
  FX_BEGIN
  bool noBack = P[15] > 0.5;
  vec4 bs = noBack ? vec4(0.0) : texelFetch(aux, ivec2(gid), 0);

  // Front as straight colour and its alpha.
  float fa = clamp(s.a, 0.0, 1.0);
  vec3 f = P[7] > 0.5 ? s.rgb : (fa > 0.0001 ? s.rgb / fa : vec3(0.0));
  int mm = fx_comp_round(P[9]);
  float a1 = fa;
  if (mm == 1) a1 = m * fa;
  else if (mm == 2 && I.useMatte > 0.5) a1 = m;  // nothing to replace with: Front's own alpha
  a1 *= P[1];

  // Back as straight colour and its alpha; an opaque Back ignores its alpha.
  float a2 = 0.0;
  vec3 b = vec3(0.0);
  if (!noBack) {
    int prem2 = fx_comp_round(P[8]);
    if (prem2 == 0) {
      b = bs.rgb;
      a2 = 1.0;
    } else {
      a2 = clamp(bs.a, 0.0, 1.0);
      b = prem2 == 1 ? (a2 < 0.0001 ? vec3(0.0) : bs.rgb / a2) : bs.rgb;
    }
  }

  vec3 r = fx_comp_blend(fx_comp_round(P[0]), b, f);

  // Front only, Back only, both: each area switched on or off by the composition.
  float w1 = a1 * (1.0 - a2), w2 = a2 * (1.0 - a1), w3 = a1 * a2;
  float sA = 1.0, sB = 1.0, sC = 1.0;
  int compo = fx_comp_round(P[10]);
  if (compo == 2) sA = sB = 0.0;
  else if (compo == 3) sB = sC = 0.0;
  else if (compo == 4) sA = 0.0;
  vec3 both = compo == 1 ? b : r;
  vec3 rp = sA * w1 * f + sB * w2 * b + sC * w3 * both;
  float al = sA * w1 + sB * w2 + sC * w3;

  vec3 c = P[12] > 0.5 ? rp : (al > 0.0001 ? rp / al : vec3(0.0));
  if (P[11] > 0.5) {
    c = clamp(c, 0.0, 1.0);
    al = clamp(al, 0.0, 1.0);
  }
  imageStore(dst, ivec2(gid), vec4(c, al));
}
