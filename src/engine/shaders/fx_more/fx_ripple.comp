// fx_ripple: circular waves from a centre, moving outward with speed P2 and fading with distance.
// P: 0 amplitude px, 1 wavelength px, 2 speed, 3-4 centre %, 5 falloff, 6 shine on the crests.
void fx_ripple(FX_ARGS) {
  FX_BEGIN
  vec2 pix = vec2(gid) + 0.5;
  vec2 d = pix - vec2(P[3], P[4]) / 100.0 * res;
  float r = length(d);
  float ph = 6.2831853 * (r / max(P[1], 1.0) - I.time * P[2]);
  float att = exp(-3.0 * P[5] * r / I.height);
  o = texture(src, (pix + d / max(r, 0.001) * sin(ph) * P[0] * att) / res);
  o.rgb = max(vec3(0.0), o.rgb + 0.25 * cos(ph) * P[6] * att * step(0.01, P[0]));
  o.a = s.a;
  FX_END
}
