// Effects written by users: a few lines of GLSL inside the effect convention, compiled into a
// pipeline that runs like any catalogue effect, with compiler lines brought back to the user's text.
#include <algorithm>
#include <regex>
#include <set>
#include <sstream>

#include "engine/engine.h"
#include "engine/kernel_library.h"
#include "gpu/device.h"
#include "gpu/shader_compiler.h"
#include "platform/string_catalogue.h"

namespace ombrik {

namespace {

const std::set<std::string>& reservedNames() {
  static const std::set<std::string> names = {"s",     "o",     "uv",   "res",  "m",      "gid",   "P",
                                              "I",     "src",   "matte", "aux", "dst",    "smp",   "LUMA",
                                              "float", "int",   "half", "uint", "bool",   "return", "if",
                                              "else",  "for",   "while", "const", "constant", "kernel", "void"};
  return names;
}

int lineCount(const std::string& text) { return int(std::count(text.begin(), text.end(), '\n')); }
int partCount(const std::string& text) { return lineCount(text) + 1; }

}  // namespace

std::optional<std::string> Engine::compileUserKernel(const std::string& name, const std::string& helpers,
                                                     const std::string& body, const std::vector<std::string>& params) {
  static const std::regex identifier("^[A-Za-z_][A-Za-z0-9_]*$");
  const std::string header = userHeader();
  std::string text = header + helpers + "\nvoid " + name + "(FX_ARGS) { FX_BEGIN\n";
  std::set<std::string> seen;
  int paramLines = 0;
  for (std::size_t i = 0; i < params.size(); ++i) {
    const std::string& p = params[i];
    // An unusable name declares nothing, and the next parameter keeps its index.
    if (!std::regex_match(p, identifier) || reservedNames().count(p) || !seen.insert(p).second) continue;
    text += "const float " + p + " = P[" + std::to_string(i) + "];\n";
    ++paramLines;
  }
  text += body + "\nFX_END }\n";
  text += "void main() { " + name + "(); }\n";

  gpu::ShaderCompiler compiler(Engine::defaultOptions().shaderCache);
  const auto result = compiler.compile(text, name);
  std::string error = result.messages;
  if (result.ok() && device_->createPipeline(name, result.spirv, &error)) return std::nullopt;

  // The compiler's lines, brought back to the helpers, the settings or the user's code.
  const int H = lineCount(header), h = partCount(helpers), B = h + 2 + paramLines;
  static const std::regex line(R"(^[^:\n]*:(\d+): (error|warning): (.*)$)");
  std::vector<std::string> messages;
  std::istringstream in(error);
  for (std::string l; std::getline(in, l) && messages.size() < 8;) {
    std::smatch mt;
    if (!std::regex_match(l, mt, line) || mt[2] != "error") continue;
    const int u = std::stoi(mt[1]) - H;
    const std::string t = mt[3];
    if (u <= h) messages.push_back("fonctions, ligne " + std::to_string(std::max(u, 1)) + " : " + t);
    else if (u >= B) messages.push_back("code, ligne " + std::to_string(u - B + 1) + " : " + t);
    else messages.push_back(tr("réglages : ") + t);
  }
  if (messages.empty()) return error.empty() ? std::string("kernel introuvable") : error;
  std::string joined;
  for (const auto& m : messages) joined += (joined.empty() ? "" : "\n") + m;
  return joined;
}

}  // namespace ombrik
