#pragma once
// What the clip benchmarks share: a 1080p test clip written by the ffmpeg program, the ffmpeg
// chain they are compared with, and a stopwatch.
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace ombrik::bench {

using Clock = std::chrono::steady_clock;

inline double seconds(Clock::time_point t0) { return std::chrono::duration<double>(Clock::now() - t0).count(); }

// `frames` frames of ffmpeg's testsrc2 at 1920x1080, 25 fps, encoded with `codec`; false when the
// program failed.
inline bool writeHdClip(const std::filesystem::path& file, int frames, const std::string& codec) {
  const std::string make = "ffmpeg -v error -y -f lavfi -i testsrc2=size=1920x1080:rate=25 -frames:v " +
                           std::to_string(frames) + " " + codec + " '" + file.string() + "'";
  return std::system(make.c_str()) == 0;
}

inline const std::string kH264Veryfast = "-c:v libx264 -preset veryfast -g 25 -pix_fmt yuv420p";

// Seconds the ffmpeg program takes to decode `clip`, halve it, curve its colours, blur it and
// convert it to RGBA: the peer of a media → colour → blur graph at half preview. Negative on failure.
inline double peerChainSeconds(const std::filesystem::path& clip) {
  const Clock::time_point t0 = Clock::now();
  const int rc = std::system(("ffmpeg -v error -i '" + clip.string() +
                              "' -vf scale=960:540,eq=brightness=0.1,gblur=sigma=4 -pix_fmt rgba -f null -")
                                 .c_str());
  return rc == 0 ? seconds(t0) : -1;
}

}  // namespace ombrik::bench
