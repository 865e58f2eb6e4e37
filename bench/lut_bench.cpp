// A 33³ LUT (the generic S-Log3 table, written as a ".cube") applied to a 1920x1080 frame on the
// engine's device, against the ffmpeg program's lut3d filter (trilinear) on the same frame and the
// same file in the same run. ffmpeg's own cost of reading and passing frames on is measured with
// a null filter and taken out, so the filter is compared with the pass.
//
//   build/bench/lut_bench [frames]      (OMBRIK_GPU=cpu forces lavapipe)
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "color/lut_lib.h"
#include "bench_engine.h"
#include "engine/engine.h"
#include "engine/half_float.h"
#include "gpu/device.h"

using namespace ombrik;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int W = 1920, H = 1080;

double ms(Clock::duration d) { return std::chrono::duration<double, std::milli>(d).count(); }

double timedCommand(const std::string& command) {
  const auto t0 = Clock::now();
  return std::system(command.c_str()) == 0 ? ms(Clock::now() - t0) : -1;
}

std::vector<std::uint16_t> readRaw(const fs::path& path) {
  std::vector<std::uint16_t> v(std::size_t(W) * H * 3);
  std::ifstream in(path, std::ios::binary);
  in.read(reinterpret_cast<char*>(v.data()), std::streamsize(v.size() * 2));  // little-endian host
  return in.gcount() == std::streamsize(v.size() * 2) ? v : std::vector<std::uint16_t>{};
}

}  // namespace

int main(int argc, char** argv) {
  const int frames = argc > 1 ? std::max(1, std::atoi(argv[1])) : 30;
  const fs::path dir = fs::temp_directory_path() / ("ombrik-lut-bench-" + std::to_string(::getpid()));
  fs::create_directories(dir);
  std::string error;
  auto engine = bench::makeEngine(dir);
  if (!engine) return 1;
  std::printf("device: %s\n", engine->deviceDescription().c_str());

  // The frame: ffmpeg's colour test picture at 16 bits a channel; the table: 33³ as text.
  const fs::path frame = dir / "frame.raw", cube = dir / "slog3.cube", theirs = dir / "ffmpeg.raw";
  const std::string raw = " -f rawvideo -pix_fmt rgb48le -s " + std::to_string(W) + "x" + std::to_string(H) + " ";
  const std::string make = "ffmpeg -v error -y -f lavfi -i testsrc2=size=1920x1080 -frames:v 1" + raw + "'" + frame.string() + "'";
  if (std::system(make.c_str()) != 0)
    return std::fprintf(stderr, "ffmpeg could not write the frame\n"), 1;
  {
    const LutTable t = LUTLib::generic("slog3", LUTLib::kGenericSize);
    std::ofstream out(cube);
    out << "LUT_3D_SIZE " << t.size << "\n";
    char line[64];
    for (std::size_t i = 0; i < t.values.size(); i += 4) {
      std::snprintf(line, sizeof line, "%.6f %.6f %.6f\n", t.values[i], t.values[i + 1], t.values[i + 2]);
      out << line;
    }
  }
  const std::vector<std::uint16_t> rgb = readRaw(frame);
  if (rgb.empty()) return std::fprintf(stderr, "frame unreadable\n"), 1;
  std::vector<std::uint16_t> halves(std::size_t(W) * H * 4);
  for (std::size_t p = 0; p < std::size_t(W) * H; ++p) {
    for (int c = 0; c < 3; ++c) halves[4 * p + c] = floatToHalf(rgb[3 * p + c] / 65535.0f);
    halves[4 * p + 3] = floatToHalf(1);
  }

  // Ours: the pass alone (the viewer's case: the frame is on the device already), then the
  // whole trip from memory to memory.
  gpu::Device& device = engine->device();
  const Engine::Tex src = device.createTexture(W, H, gpu::Format::rgba16Float);
  device.write(src, halves.data(), halves.size() * 2);
  const Engine::Tex warm = engine->applyLUT(src, cube.string(), 0, 0);
  if (warm == src) return std::fprintf(stderr, "no LUT pass\n"), 1;
  auto t0 = Clock::now();
  for (int f = 1; f <= frames; ++f) engine->applyLUT(src, cube.string(), f, 0);
  const double pass = ms(Clock::now() - t0) / frames;
  std::vector<float> px;
  t0 = Clock::now();
  for (int f = 1; f <= frames; ++f) {
    device.write(src, halves.data(), halves.size() * 2);
    px = engine->readPixels(engine->applyLUT(src, cube.string(), frames + f, 0));
  }
  const double trip = ms(Clock::now() - t0) / frames;

  // ffmpeg: the frame looped `frames` times through lut3d, and through a null filter.
  const std::string in =
      "ffmpeg -v error -y" + raw + "-stream_loop " + std::to_string(frames - 1) + " -i '" + frame.string() + "' ";
  const double withLut = timedCommand(in + "-vf lut3d=file='" + cube.string() + "':interp=trilinear -f null -") / frames;
  const double plain = timedCommand(in + "-vf null -f null -") / frames;
  const double filter = withLut - plain;

  // Both results agree: the largest difference on the 8-bit scale.
  double worst = -1;
  if (std::system(("ffmpeg -v error -y" + raw + "-i '" + frame.string() + "' -vf lut3d=file='" + cube.string() +
                   "':interp=trilinear" + raw + "'" + theirs.string() + "'").c_str()) == 0) {
    const std::vector<std::uint16_t> ref = readRaw(theirs);
    if (!ref.empty() && px.size() == std::size_t(W) * H * 4) {
      worst = 0;
      for (std::size_t p = 0; p < std::size_t(W) * H; ++p)
        for (int c = 0; c < 3; ++c) worst = std::max(worst, std::abs(px[4 * p + c] - ref[3 * p + c] / 65535.0) * 255);
    }
  }

  std::printf("frames: %d at %dx%d, LUT 33³ (%s)\n", frames, W, H, cube.filename().c_str());
  std::printf("ours: pass %.2f ms/frame, upload + pass + read back %.2f ms/frame\n", pass, trip);
  std::printf("ffmpeg lut3d (trilinear): %.2f ms/frame, of which reading and passing frames on %.2f, filter %.2f\n",
              withLut, plain, filter);
  std::printf("ratio ours/ffmpeg: pass/filter %.2f, trip/whole %.2f\n", filter > 0 ? pass / filter : 0.0,
              withLut > 0 ? trip / withLut : 0.0);
  std::printf("largest difference from ffmpeg's result: %.2f on the 8-bit scale\n", worst);
  fs::remove_all(dir);
  return 0;
}
