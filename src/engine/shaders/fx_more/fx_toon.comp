// fx_toon: flat colours and inked outlines, from the pre-blurred picture in aux so that noise
// neither breaks the flats nor draws lines.
// P: 0 levels, 1 smoothing px (the pre-blur), 2 ink strength, 3 line width px, 4 saturation.
void fx_toon(FX_ARGS) {
  FX_BEGIN
  vec3 c = toHSV(texture(aux, uv).rgb);
  float n = max(floor(P[0] + 0.5), 2.0);
  // Value in n steps, with a short ramp between steps instead of a hard jump; the offset keeps
  // the darkest step from going black.
  float v = c.z * n;
  float vq = (floor(v) + smoothstep(0.42, 0.58, fract(v)) + 0.35) / (n + 0.35);
  vec3 col = fromHSV(vec3(c.x, clamp(c.y * P[4], 0.0, 1.0), clamp(vq, 0.0, 1.0)));
  float e = sobel(aux, uv, max(P[3], 0.5));
  float ink = smoothstep(0.15, 0.45, e * P[2]);
  o.rgb = col * (1.0 - ink);
  FX_END
}
