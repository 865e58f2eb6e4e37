// fx_chromakey: keys out colours near a hue that are saturated enough; white is kept.

// The HSV hue in degrees, 0..360; 0 for a colour with no chroma to speak of.
float fx_chromakey_hue(vec3 c, float cmax, float chroma) {
  if (chroma < 0.00001) return 0.0;
  float h;
  if (cmax == c.r) h = mod((c.g - c.b) / chroma, 6.0);
  else if (cmax == c.g) h = (c.b - c.r) / chroma + 2.0;
  else h = (c.r - c.g) / chroma + 4.0;
  return 60.0 * h;
}

void fx_chromakey(FX_ARGS) {
  FX_BEGIN
  float cmax = max(s.r, max(s.g, s.b));
  float chroma = cmax - min(s.r, min(s.g, s.b));
  float h = fx_chromakey_hue(s.rgb, cmax, chroma);
  // A black pixel has no saturation rather than an undefined one.
  float sat = cmax > 0.0 ? chroma / cmax : 0.0;
  // The hue circle wraps: 350 degrees is 20 away from 10, not 340.
  float d = mod(abs(h - P[0]), 360.0);
  float dh = min(d, 360.0 - d);
  float hueIn = 1.0 - smoothstep(P[1], P[1] * (1.0 + 4.0 * P[3]) + 0.001, dh);
  float satIn = smoothstep(P[2] - P[3], P[2] + P[3] + 0.001, sat);
  float k = 1.0 - hueIn * satIn;
  if (P[4] > 0.5) k = 1.0 - k;
  o = vec4(k, k, k, 1.0);
  FX_END
}
