// The effect convention, shared by the catalogue's effects and by user kernels:
//
//   void fx_name(FX_ARGS) { FX_BEGIN  o.rgb = ...;  FX_END }
//
// src (texture 0), matte (1), aux (2: the Back/Depth input, or a pre-blurred Front) are sampled
// textures: texelFetch(src, ivec2(gid), 0) reads a texel, texture(src, uv) samples bilinearly with
// clamp-to-edge. dst (3) is written by FX_END. P holds the parameters in the kind's order, I the
// FxInfo (useMatte, width, height, time) carried in P[16..19].
struct FxInfo {
  float useMatte;
  float width;
  float height;
  float time;
};

#define src T0
#define matte T1
#define aux T2
#define dst W3
#define FX_ARGS
#define FX_BEGIN                                                                              \
  uvec2 gid = gl_GlobalInvocationID.xy;                                                        \
  if (gid.x >= uint(imageSize(dst).x) || gid.y >= uint(imageSize(dst).y)) return;              \
  const FxInfo I = FxInfo(P[16], P[17], P[18], P[19]);                                          \
  vec2 res = vec2(imageSize(dst));                                                              \
  vec2 uv = (vec2(gid) + 0.5) / res;                                                            \
  vec4 s = texelFetch(src, ivec2(gid), 0);                                                      \
  float m = I.useMatte > 0.5 ? texelFetch(matte, ivec2(gid), 0).r : 1.0;                         \
  vec4 o = s;
#define FX_END imageStore(dst, ivec2(gid), mix(s, o, m));

// The fully saturated colour of a hue in degrees.
vec3 hueColor(float h) {
  float t = fract(h / 360.0) * 6.0;
  return clamp(vec3(abs(t - 3.0) - 1.0, 2.0 - abs(t - 2.0), 2.0 - abs(t - 4.0)), 0.0, 1.0);
}
