// k_matteshape (in, out; P: channel, contrast, grow, mode, zone offset): an AI matte's value taken
// from one channel, its edge steepened about 0.5 - grow: clamp(v c + 0.5 - (0.5 - grow) c, 0, 1).
// Mode 1 multiplies it by the zone held in blue (a hair matte's hair zone), mode 2 gives that zone
// alone; an offset above 0.001 in size moves the zone, clamped to 0..1.
void k_matteshape() {
  ivec2 g = pixelID();
  if (outsideOf(g, imageSize(W1))) return;
  vec4 c = texelFetch(T0, g, 0);
  int channel = int(P[0] + 0.5);
  float v = channel == 0 ? c.r : channel == 1 ? c.g : c.b;
  float k = P[1];
  float s = clamp(v * k + (0.5 - (0.5 - P[2]) * k), 0.0, 1.0);
  int mode = int(P[3] + 0.5);
  if (mode > 0) {
    float zone = c.b;
    if (abs(P[4]) > 0.001) zone = clamp(zone + P[4], 0.0, 1.0);
    s = mode == 2 ? zone : s * zone;
  }
  imageStore(W1, g, vec4(s, s, s, 1.0));
}
