#pragma once
// The state of playback: a RAM cache of finished frames for the node played, filled one frame at
// a time in clock order, shown by the wall clock. A heavy graph plays at its own speed on the
// first pass and in real time from then on.
#include <cstdint>
#include <map>
#include <memory>
#include <optional>

#include "gpu/texture.h"
#include "graph/uuid.h"
#include "media/forward_readers.h"

namespace ombrik {

struct PlayState {
  std::map<int, gpu::TexturePtr> cache;  // 8-bit frames of cacheW by cacheH
  std::optional<Uuid> target;            // the node the cache belongs to
  gpu::TexturePtr display;               // what the viewer draws while playing
  int displayFrame = 0;
  std::optional<std::uint64_t> timer;  // the play clock's repeating tick
  ForwardReaders readers{true};  // frames go to the engine only: planes, converted there
  double startTime = 0;  // clock origin, seconds
  int startFrame = 0;    // frame at the clock origin
  int budgetFrames = 0;
  int cacheW = 0, cacheH = 0;
  bool working = false;  // a cache job is in flight
  int generation = 0;    // raised to disown jobs in flight
  int fpsCount = 0;
  double fpsT0 = 0;
  double lastUI = -1e9;
  int head = 0;          // frame shown by the clock
  // The native path: the clip's own player hands its frames to the viewer, no graph.
  bool native = false;
  bool nativeSeeking = false;  // the player is being rewound
  bool noNative = false;       // the clip couldn't be played live: don't try again until the graph changes
  double nativeT0 = 0;
  int nativeN = 0;             // frames shown since nativeT0
  gpu::TexturePtr liveTex[2];  // shown in turn, so the viewer sees each new frame as a new texture
  int liveFlip = 0;
};

// Bytes the play cache may hold: a share of the memory (boostPercent, else 60 %) less 6 GB for
// the system, between 1 and 40 GB.
double playCacheBytes(double physicalBytes, double boostPercent);

struct PlayCacheSize {
  int width = 16, height = 16;
};
// The size of cached frames so that `frames` frames of w by h fit in `budget` bytes at 4 bytes a
// pixel, the long side at most `maxSide` (0 or less: no limit); never under 16 a side.
PlayCacheSize playCacheSize(int w, int h, int frames, int maxSide, double budget);

}  // namespace ombrik
