#pragma once
#include <iosfwd>
#include <string>
#include <vector>

namespace ombrik {

// `ombrik render PROJECT [--world NAME] [--frames A-B] [--scale S] --out PATTERN`: renders a
// world's output for each frame into PNG, TIFF or EXR files, headless, one progress line a
// frame on stderr. Frames are numbered as users see them, from 1.
struct RenderCommand {
  static int run(const std::vector<std::string>& args, std::ostream& err);
  // "out_%05d.exr" with 7 gives "out_00007.exr"; nullopt-like empty when the pattern is unusable.
  static std::string fileFor(const std::string& pattern, int frame);
};

}  // namespace ombrik
