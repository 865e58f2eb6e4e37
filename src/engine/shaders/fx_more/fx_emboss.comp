// fx_emboss: the picture pressed into a sheet and lit from one side: the luminance difference
// across the light's direction becomes a grey relief, optionally multiplied into the colours.
// P: 0 light angle, 1 height, 2 picture colours, 3 width px.
void fx_emboss(FX_ARGS) {
  FX_BEGIN
  float a = radians(P[0]);
  vec2 dir = vec2(cos(a), sin(a)) * max(P[3], 0.5) / res;
  float h = dot(texture(src, uv + dir).rgb, LUMA) - dot(texture(src, uv - dir).rgb, LUMA);
  vec3 relief = vec3(clamp(0.5 + 2.0 * h * P[1], 0.0, 1.0));
  o.rgb = mix(relief, 2.0 * s.rgb * relief, P[2]);
  FX_END
}
