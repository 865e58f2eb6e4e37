// fx_watercolor: washes from the pre-blurred picture (aux), read at a wobbling position so the
// colour bleeds past its edges, with soft value steps, pigment pooled at edges and paper grain.
// P: 0 wash size px (the pre-blur), 1 edges, 2 paper grain, 3 saturation, 4 bleed.
void fx_watercolor(FX_ARGS) {
  FX_BEGIN
  vec2 x = vec2(gid);
  vec2 wob = vec2(fbm(0.02 * x, 1.0, 3), fbm(0.02 * x, 7.0, 3)) - 0.5;
  vec2 q = uv + 3.0 * wob * P[4] * max(P[0], 2.0) / res;
  vec3 hsv = toHSV(texture(aux, q).rgb);
  hsv.y = clamp(hsv.y * P[3], 0.0, 1.0);
  vec3 smoothColour = fromHSV(hsv);
  float v = 6.0 * hsv.z;
  hsv.z = (floor(v) + smoothstep(0.3, 0.7, fract(v))) / 6.0;
  vec3 c = mix(smoothColour, fromHSV(hsv), 0.5);
  c *= 1.0 - clamp(0.8 * sobel(aux, q, 2.0) * P[1], 0.0, 1.0);
  c *= 1.0 - 0.3 * P[2] * (fbm(0.035 * x, 4.0, 4) - 0.35);
  o.rgb = mix(c, vec3(1.0), 0.06);
  FX_END
}
