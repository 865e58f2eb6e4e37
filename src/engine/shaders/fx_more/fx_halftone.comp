// fx_halftone: printed dots. Each ink lives on its own rotated screen; a dot's size follows the
// picture sampled once at the centre of its cell, so every dot is round and flat like real ink.
// P: 0 dot size px, 1 angle, 2 mode (0 black screen, 1 picture colours, 2 four inks), 3 softness, 4 mix.

// The cell of the screen of pitch z at angle a (degrees) around pixel pix: its centre in pixels
// (xy) and the distance from pix to it in cell units (z).
vec3 fx_halftone_cell(vec2 pix, float z, float a) {
  vec2 q = rot(pix, -a) / z;
  vec2 centre = floor(q) + 0.5;
  return vec3(rot(centre * z, a), length(q - centre));
}

void fx_halftone(FX_ARGS) {
  FX_BEGIN
  vec2 pix = vec2(gid) + 0.5;
  float sz = max(P[0], 2.0);
  float aa = max(P[3] / 4.0, 1.0 / sz);
  int mode = int(floor(P[2] + 0.5));
  vec3 c;
  if (mode == 2) {
    // Cyan, magenta, yellow from each ink's own cell, black on top of them.
    float cov[4];
    for (int k = 0; k < 4; ++k) {
      vec3 cell = fx_halftone_cell(pix, sz, P[1] + INK_ANGLES[k] - 45.0);
      vec3 rgb = clamp(texture(src, cell.xy / res).rgb, 0.0, 1.0);
      float K = 1.0 - max(rgb.r, max(rgb.g, rgb.b));
      float v = k == 3 ? K : (1.0 - rgb[k] - K) / max(1.0 - K, 0.001);
      float rr = 0.62 * sqrt(clamp(v, 0.0, 1.0));
      cov[k] = below(rr - aa, rr + aa, cell.z);
    }
    c = vec3(1.0 - cov[0], 1.0 - cov[1], 1.0 - cov[2]) * (1.0 - cov[3]);
  } else {
    vec3 cell = fx_halftone_cell(pix, sz, P[1]);
    vec3 rgb = clamp(texture(src, cell.xy / res).rgb, 0.0, 1.0);
    float Lc = clamp(dot(rgb, LUMA), 0.0, 1.0);
    if (mode == 0) {
      // Black dots that grow in the shadows.
      float rr = 0.7 * sqrt(1.0 - Lc);
      c = vec3(1.0 - below(rr - aa, rr + aa, cell.z));
    } else {
      // Coloured dots on black that grow in the lights; any other mode reads as this one.
      float rr = 0.7 * sqrt(Lc);
      c = 1.15 * rgb * below(rr - aa, rr + aa, cell.z);
    }
  }
  o.rgb = mix(s.rgb, c, P[4]);
  FX_END
}
