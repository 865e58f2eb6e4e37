#pragma once
// Kernels as stages of one merged program (pass_fusion.h): which kernels write only the pixel
// of their thread, which also read every input only there, and a kernel's text rewritten so that
// it runs after others in the same thread, taking their values instead of textures.
#include <string>
#include <vector>

namespace ombrik {

struct StageShape {
  bool lead = false;       // writes one texture, at its thread's pixel only: it may open a run
  bool pixelWise = false;  // and reads every input at that pixel only: it may join a run
  int output = -1;         // the index of the texture it writes
  bool alone = false;      // its file is its one function: it may appear twice in a run
};
// `text`: the kernel's file with the effect macros expanded; `samplerHelpers`: functions of its
// header that take a texture (a kernel calling one reads around its pixel).
StageShape stageShape(const std::string& text, const std::string& entry, const std::vector<std::string>& samplerHelpers);

// The functions of a header that take a sampler2D.
std::vector<std::string> samplerHelpers(const std::string& header);

// FX_ARGS, FX_BEGIN and FX_END replaced by their definitions in `convention`, and the effect
// textures by their numbers (src T0, matte T1, aux T2, dst W3): the text then reads like a
// base kernel.
std::string expandEffectMacros(const std::string& text, const std::string& convention);

struct StageInput {
  int fromStage = -1;  // the value of this earlier stage, else the texture in `slot`
  int slot = -1;
};
// The kernel as `void stage<n>()`: inputs from earlier stages read their value `stageValue<k>`,
// the output goes to `stageValue<n>` through `stageHalf` (the program's rounding to what a
// texture would store) and to texture `outSlot` as well when >= 0, and P[i] reads D[32 n + i].
std::string stageText(const std::string& text, const std::string& entry, int n, const std::vector<StageInput>& inputs,
                      int output, int outSlot);

}  // namespace ombrik
