// fx_edge: Sobel gradient of the luminance over the 8 neighbours (edges repeat at the border).
float fx_edge_luma(vec2 p) { return dot(texture(src, p).rgb, LUMA); }

void fx_edge(FX_ARGS) {
  FX_BEGIN
  vec2 px = 1.0 / res;
  float tl = fx_edge_luma(uv + vec2(-px.x, -px.y)), t = fx_edge_luma(uv + vec2(0.0, -px.y));
  float tr = fx_edge_luma(uv + vec2(px.x, -px.y)), l = fx_edge_luma(uv + vec2(-px.x, 0.0));
  float r = fx_edge_luma(uv + vec2(px.x, 0.0)), bl = fx_edge_luma(uv + vec2(-px.x, px.y));
  float b = fx_edge_luma(uv + vec2(0.0, px.y)), br = fx_edge_luma(uv + vec2(px.x, px.y));
  float gx = (tr + 2.0 * r + br) - (tl + 2.0 * l + bl);
  float gy = (bl + 2.0 * b + br) - (tl + 2.0 * t + tr);
  float e = length(vec2(gx, gy)) * P[0];
  o.rgb = P[1] > 0.5 ? vec3(e) : s.rgb * e;
  FX_END
}
