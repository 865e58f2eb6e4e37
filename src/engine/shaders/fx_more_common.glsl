// Helpers and constant tables shared by the second batch of effects.

const float FLARE_GHOST_POS[6] = float[6](-0.35, -0.7, 0.4, -1.1, -1.5, 0.75);
const float FLARE_GHOST_RADIUS[6] = float[6](0.05, 0.11, 0.035, 0.16, 0.07, 0.025);
const float INK_ANGLES[4] = float[4](15.0, 75.0, 0.0, 45.0);
const vec3 INFRARED_RAMP[7] = vec3[7](vec3(0.0, 0.0, 0.02), vec3(0.12, 0.0, 0.45), vec3(0.5, 0.0, 0.6),
                                      vec3(0.88, 0.06, 0.25), vec3(1.0, 0.45, 0.0), vec3(1.0, 0.85, 0.1),
                                      vec3(1.0, 1.0, 0.9));

float below(float a, float b, float x) { return 1.0 - smoothstep(a, b, x); }

// Integer hashing of the lattice cell, stable far from the origin.
float hashAt(vec2 p, float seed) {
  ivec2 i = ivec2(floor(p));
  return hash2(uint(i.x), uint(i.y), uint(int(seed * 7.0 + 11.0)));
}

float noise(vec2 p, float seed) {
  vec2 i = floor(p), f = p - i;
  vec2 u = f * f * (3.0 - 2.0 * f);
  float a = hashAt(i, seed), b = hashAt(i + vec2(1.0, 0.0), seed);
  float c = hashAt(i + vec2(0.0, 1.0), seed), d = hashAt(i + vec2(1.0, 1.0), seed);
  return mix(mix(a, b, u.x), mix(c, d, u.x), u.y);
}

float fbm(vec2 p, float seed, int n) {
  float a = 0.5, sum = 0.0, norm = 0.0;
  for (int k = 0; k < n; ++k) {
    sum += a * noise(p, seed + 3.0 * float(k));
    norm += a;
    p = 2.03 * p + vec2(5.2, 1.3);
    a *= 0.5;
  }
  return sum / norm;
}

vec2 rot(vec2 v, float deg) {
  float r = deg * 0.0174532925;
  float c = cos(r), s = sin(r);
  return vec2(c * v.x - s * v.y, s * v.x + c * v.y);
}

// Repetition in 0..1 by reflection.
float mirror(float q) { return 1.0 - abs(1.0 - 2.0 * fract(q / 2.0)); }
vec2 mirror(vec2 q) { return 1.0 - abs(1.0 - 2.0 * fract(q / 2.0)); }

// Points of the unit disc on a golden spiral.
vec2 disc(float i, float n) {
  float a = 2.39996323 * i;
  return sqrt((i + 0.5) / n) * vec2(cos(a), sin(a));
}

vec3 toHSV(vec3 c) {
  float mx = max(c.r, max(c.g, c.b)), mn = min(c.r, min(c.g, c.b));
  float d = mx - mn;
  float h = 0.0;
  if (d > 0.0) {
    if (mx == c.r) h = mod((c.g - c.b) / (d + 0.000001), 6.0);
    else if (mx == c.g) h = (c.b - c.r) / (d + 0.000001) + 2.0;
    else h = (c.r - c.g) / (d + 0.000001) + 4.0;
    h /= 6.0;
  }
  return vec3(fract(h), d / (mx + 0.000001), mx);
}

vec3 fromHSV(vec3 c) {
  vec3 k = clamp(abs(fract(c.x + vec3(1.0, 2.0 / 3.0, 1.0 / 3.0)) * 6.0 - 3.0) - 1.0, 0.0, 1.0);
  return c.z * mix(vec3(1.0), k, c.y);
}

// The Sobel gradient of luminance at q, neighbours px pixels apart.
float sobel(sampler2D t, vec2 q, float px) {
  vec2 d = px / vec2(textureSize(t, 0));
  float tl = dot(texture(t, q + vec2(-d.x, -d.y)).rgb, LUMA), tc = dot(texture(t, q + vec2(0.0, -d.y)).rgb, LUMA);
  float tr = dot(texture(t, q + vec2(d.x, -d.y)).rgb, LUMA), ml = dot(texture(t, q + vec2(-d.x, 0.0)).rgb, LUMA);
  float mr = dot(texture(t, q + vec2(d.x, 0.0)).rgb, LUMA), bl = dot(texture(t, q + vec2(-d.x, d.y)).rgb, LUMA);
  float bc = dot(texture(t, q + vec2(0.0, d.y)).rgb, LUMA), br = dot(texture(t, q + vec2(d.x, d.y)).rgb, LUMA);
  float gx = (tr + 2.0 * mr + br) - (tl + 2.0 * ml + bl);
  float gy = (bl + 2.0 * bc + br) - (tl + 2.0 * tc + tr);
  return length(vec2(gx, gy));
}

// Near is white.
float depth(sampler2D t, vec2 q, float inv) {
  float z = clamp(dot(texture(t, q).rgb, LUMA), 0.0, 1.0);
  return inv > 0.5 ? 1.0 - z : z;
}

vec3 toYIQ(vec3 c) {
  return vec3(dot(c, vec3(0.299, 0.587, 0.114)), dot(c, vec3(0.596, -0.274, -0.322)), dot(c, vec3(0.211, -0.523, 0.312)));
}
vec3 fromYIQ(vec3 c) {
  return vec3(c.x + 0.956 * c.y + 0.621 * c.z, c.x - 0.272 * c.y - 0.647 * c.z, c.x - 1.106 * c.y + 1.703 * c.z);
}

// The skin weight of a colour (the same as the skin texture's).
float skin(vec3 c) {
  float cb = 0.5 - 0.169 * c.r - 0.331 * c.g + 0.5 * c.b;
  float cr = 0.5 + 0.5 * c.r - 0.419 * c.g - 0.081 * c.b;
  return smoothstep(0.27, 0.31, cb) * (1.0 - smoothstep(0.49, 0.53, cb)) * smoothstep(0.51, 0.55, cr) *
         (1.0 - smoothstep(0.67, 0.71, cr));
}

vec3 ramp(float t, float pal) {
  t = clamp(t, 0.0, 1.0);
  int p = int(pal);
  if (p == 1) return fromHSV(vec3(0.75 * (1.0 - t), 0.9, mix(0.35, 1.0, sqrt(t))));
  if (p == 2) {
    vec3 a = vec3(0.0, 0.02, 0.08), b = vec3(0.05, 0.3, 0.6), c = vec3(0.5, 0.85, 1.0);
    if (t < 0.33) return mix(a, b, t / 0.33);
    if (t < 0.66) return mix(b, c, (t - 0.33) / 0.33);
    return mix(c, vec3(1.0), (t - 0.66) / 0.34);
  }
  float x = t * 6.0;
  int i = min(int(floor(x)), 5);
  return mix(INFRARED_RAMP[i], INFRARED_RAMP[i + 1], x - float(i));
}
