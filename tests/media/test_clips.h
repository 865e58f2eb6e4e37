#pragma once
// Clips written by the tests with the ffmpeg program: each frame a flat grey of its own level, so
// the frame a decoded picture shows can be told from its mean.
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "engine/half_float.h"
#include "engine/source_picture.h"

namespace ombrik::test {

constexpr int kClipW = 64, kClipH = 36, kClipFrames = 40;
inline int clipLevel(int frame) { return 16 + 6 * frame; }  // 16..250, 6 apart

// Encodes `frames` frames of grey `level(i)`; `codec` holds the options that pick the encoder. With
// `ramp` every frame is the same left-to-right ramp instead (to tell orientations apart).
inline std::filesystem::path writeClip(const std::filesystem::path& out, const std::string& codec, bool ramp = false,
                                       int frames = kClipFrames,
                                       const std::function<int(int)>& level = [](int i) { return clipLevel(i % 40); }) {
  const std::string cmd = "ffmpeg -v error -y -f rawvideo -pix_fmt gray -s " + std::to_string(kClipW) + "x" +
                          std::to_string(kClipH) + " -r 25 -i - " + codec + " '" + out.string() + "'";
  FILE* pipe = popen(cmd.c_str(), "w");
  if (!pipe) return {};
  std::vector<unsigned char> frame(kClipW * kClipH);
  for (int i = 0; i < frames; ++i) {
    for (int p = 0; p < kClipW * kClipH; ++p) frame[p] = static_cast<unsigned char>(ramp ? 20 + 3 * (p % kClipW) : level(i));
    fwrite(frame.data(), 1, frame.size(), pipe);
  }
  return pclose(pipe) == 0 ? out : std::filesystem::path();
}

// The mean grey of a picture on 0..255.
inline double meanGrey(const SourcePicture& p) {
  double sum = 0;
  for (std::size_t i = 0; i < p.rgba->size(); i += 4) sum += halfToFloat((*p.rgba)[i + 1]);
  return sum / double(p.rgba->size() / 4) * 255.0;
}

// The frame a grey level stands for; -1 when it matches none.
inline int frameOfGrey(double grey) {
  const int frame = int(std::lround((grey - 16) / 6));
  return std::abs(grey - clipLevel(frame)) < 2.5 ? frame : -1;
}
inline int frameShown(const SourcePicture& p) { return frameOfGrey(meanGrey(p)); }

}  // namespace ombrik::test
