// fx_wave: a regular wave travelling along P2 degrees, moving the picture across it.
// P: 0 amplitude px, 1 wavelength px, 2 direction, 3 speed, 4 shape (sine, triangle, square).
void fx_wave(FX_ARGS) {
  FX_BEGIN
  vec2 pix = vec2(gid) + 0.5;
  float ang = P[2] * 0.0174532925;
  vec2 dir = vec2(cos(ang), sin(ang));
  float ph = dot(pix, dir) / max(P[1], 1.0) - I.time * P[3];
  int shape = int(floor(P[4] + 0.5));
  float w = shape == 1 ? 4.0 * abs(fract(ph) - 0.5) - 1.0
          : shape == 2 ? (fract(ph) < 0.5 ? 1.0 : -1.0)
                       : sin(6.2831853 * ph);
  o = texture(src, (pix + vec2(-dir.y, dir.x) * w * P[0]) / res);
  o.a = s.a;
  FX_END
}
