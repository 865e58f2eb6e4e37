// Shared by every kernel and by user kernels.
//
// A pass binds its textures in list order: texture i is readable as Ti (a sampler with bilinear
// filtering and clamp-to-edge borders; texelFetch gives exact texels) and writable as Wi.
// A 3D texture in the list (a LUT) is bound as L0 instead. P is the pass's float array; D is the
// variable-length table of the passes that carry one. One thread per pixel of the last texture.
#version 450
layout(local_size_x = 16, local_size_y = 16, local_size_z = 1) in;

layout(set = 0, binding = 0) uniform sampler2D T0;
layout(set = 0, binding = 1) uniform sampler2D T1;
layout(set = 0, binding = 2) uniform sampler2D T2;
layout(set = 0, binding = 3) uniform sampler2D T3;
layout(set = 0, binding = 4) uniform sampler2D T4;
layout(set = 0, binding = 5) uniform sampler2D T5;
layout(set = 0, binding = 6) uniform sampler2D T6;
layout(set = 0, binding = 7) uniform sampler2D T7;
layout(set = 0, binding = 8) writeonly uniform image2D W0;
layout(set = 0, binding = 9) writeonly uniform image2D W1;
layout(set = 0, binding = 10) writeonly uniform image2D W2;
layout(set = 0, binding = 11) writeonly uniform image2D W3;
layout(set = 0, binding = 12) writeonly uniform image2D W4;
layout(set = 0, binding = 13) writeonly uniform image2D W5;
layout(set = 0, binding = 14) writeonly uniform image2D W6;
layout(set = 0, binding = 15) writeonly uniform image2D W7;
layout(set = 0, binding = 16, std430) readonly buffer TableBuffer { float D[]; };
layout(set = 0, binding = 17) uniform sampler3D L0;
layout(push_constant) uniform Params { float P[32]; };

const vec3 LUMA = vec3(0.2126, 0.7152, 0.0722);

// Integer hash in 0..1; all arithmetic wraps at 32 bits.
float hash2(uint x, uint y, uint s) {
  uint h = x * 374761393u + y * 668265263u + s * 2246822519u;
  h = (h ^ (h >> 13u)) * 1274126177u;
  h = h ^ (h >> 16u);
  return float(h) * (1.0 / 4294967295.0);
}

ivec2 pixelID() { return ivec2(gl_GlobalInvocationID.xy); }
bool outsideOf(ivec2 g, ivec2 size) { return g.x >= size.x || g.y >= size.y; }

// Bilinear read at normalised coordinates, transparent black outside the texture.
vec4 sampleZero(sampler2D t, vec2 uv) {
  ivec2 size = textureSize(t, 0);
  vec2 p = uv * vec2(size) - 0.5;
  ivec2 i0 = ivec2(floor(p));
  vec2 f = p - vec2(i0);
  vec4 acc = vec4(0.0);
  for (int dy = 0; dy <= 1; ++dy)
    for (int dx = 0; dx <= 1; ++dx) {
      ivec2 i = i0 + ivec2(dx, dy);
      if (i.x < 0 || i.y < 0 || i.x >= size.x || i.y >= size.y) continue;
      float w = (dx == 1 ? f.x : 1.0 - f.x) * (dy == 1 ? f.y : 1.0 - f.y);
      acc += w * texelFetch(t, i, 0);
    }
  return acc;
}

// Bilinear read with clamp-to-edge borders.
vec4 sampleClamp(sampler2D t, vec2 uv) { return textureLod(t, uv, 0.0); }
