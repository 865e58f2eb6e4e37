// fx_depthrelight: a point light added after the fact. Normals come from the depth picture's
// slope (aux, near white); diffuse, falloff and a specular highlight follow.
void fx_depthrelight(FX_ARGS) {
  FX_BEGIN
  float asp = I.width / I.height;
  float st = max(P[10], 1.0);
  vec2 dx = vec2(st / res.x, 0.0), dy = vec2(0.0, st / res.y);
  vec2 grad = vec2(depth(aux, uv + dx, P[11]) - depth(aux, uv - dx, P[11]),
                   depth(aux, uv + dy, P[11]) - depth(aux, uv - dy, P[11])) *
              (I.height / (2.0 * st));
  vec3 n = normalize(vec3(-grad * P[6], 1.0));
  float z = depth(aux, uv, P[11]);
  vec3 lv = vec3((P[0] / 100.0 - 0.5) * asp, P[1] / 100.0 - 0.5, P[2]) -
            vec3((uv.x - 0.5) * asp, uv.y - 0.5, z / 2.0);
  float dl = length(lv);
  lv /= max(dl, 0.0001);
  float lam = max(dot(n, lv), 0.0);
  float att = 1.0 / (1.0 + 4.0 * dl * dl * P[9]);
  float spec = pow(max(0.0, dot(n, normalize(lv + vec3(0.0, 0.0, 1.0)))), 40.0) * P[8];
  vec3 tint = mix(vec3(1.0), hueColor(P[4]), P[5]);
  float sh = lam * att;
  o.rgb = s.rgb * (1.0 - P[7] + P[7] * clamp(1.6 * sh, 0.0, 1.0)) + s.rgb * tint * sh * P[3] + tint * spec * att * P[3];
  FX_END
}
