#include "engine/pass_fusion.h"

#include <algorithm>
#include <cstring>
#include <fstream>

#include "engine/half_float.h"
#include "engine/kernel_library.h"
#include "engine/kernel_stages.h"
#include "gpu/shader_compiler.h"

namespace ombrik {

namespace {
constexpr std::size_t kSlots = 8;     // textures a pass binds
constexpr std::size_t kStageP = 32;   // parameters a stage may read, its share of the table

// A pass a run can take: one thread per pixel, no table of its own, an rgba16f grid, 2D only.
bool plain(const PlannedPass& p) {
  if (p.textures.empty() || p.textures.size() > kSlots || !p.table.empty() || p.span.x != 1 || p.span.y != 1)
    return false;
  if (p.textures.back()->format() != gpu::Format::rgba16Float) return false;
  return std::none_of(p.textures.begin(), p.textures.end(), [](const gpu::TexturePtr& t) { return !t || t->is3D(); });
}
}  // namespace

struct PassFusion::Stage {
  bool known = false;
  int header = 0;
  std::string text;  // effect macros expanded
  StageShape shape;
};

struct PassFusion::Run {
  std::vector<std::size_t> ops;  // indices into the plan, consecutive
};

PassFusion::PassFusion(gpu::Device& device, Options options) : device_(device), options_(std::move(options)) {}
PassFusion::~PassFusion() = default;

const PassFusion::Stage& PassFusion::stage(const std::string& kernel) {
  std::unique_ptr<Stage>& s = stages_[kernel];
  if (!s) {
    s = std::make_unique<Stage>();
    if (auto source = kernelSource(kernel)) {
      s->known = true;
      s->header = source->header;
      s->text = expandEffectMacros(source->text, effectConvention());
      auto helpers = helpers_.find(source->header);  // each header parsed once
      if (helpers == helpers_.end())
        helpers = helpers_.emplace(source->header, samplerHelpers(kernelHeader(source->header))).first;
      s->shape = stageShape(s->text, kernel, helpers->second);
    }
  }
  return *s;
}

bool PassFusion::canLead(const std::string& kernel) { return stage(kernel).shape.lead; }
bool PassFusion::pixelWise(const std::string& kernel) { return stage(kernel).shape.pixelWise; }

std::size_t PassFusion::runAt(const std::vector<PassPlan::Op>& ops, std::size_t i, Run& run) {
  run.ops.clear();
  if (!ops[i].pass) return 0;
  const PlannedPass& first = *ops[i].pass;
  if (!plain(first) || !canLead(first.kernel) || stage(first.kernel).shape.output != int(first.textures.size()) - 1)
    return 0;
  const gpu::Texture* grid = first.textures.back().get();
  std::set<const gpu::Texture*> written{grid}, read, real;
  std::set<std::string> kernels{first.kernel};
  for (std::size_t k = 0; k + 1 < first.textures.size(); ++k) read.insert(first.textures[k].get());
  real = read;
  run.ops.push_back(i);
  for (std::size_t j = i + 1; j < ops.size() && ops[j].pass; ++j) {
    const PlannedPass& p = *ops[j].pass;
    if (!plain(p) || !pixelWise(p.kernel) || (kernels.count(p.kernel) && !stage(p.kernel).shape.alone) ||
        stage(p.kernel).shape.output != int(p.textures.size()) - 1)
      break;
    const gpu::Texture* out = p.textures.back().get();
    if (out->width() != grid->width() || out->height() != grid->height() || written.count(out) || read.count(out)) break;
    bool links = false, inPlace = false;
    std::set<const gpu::Texture*> inputs;
    for (std::size_t k = 0; k + 1 < p.textures.size(); ++k) {
      const gpu::Texture* t = p.textures[k].get();
      inPlace = inPlace || t == out;
      links = links || written.count(t);
      inputs.insert(t);
    }
    std::set<const gpu::Texture*> bound = real;
    for (const auto* t : inputs)
      if (!written.count(t)) bound.insert(t);
    if (inPlace || !links || bound.size() + written.size() + 1 > kSlots) break;
    real = std::move(bound);
    read.insert(inputs.begin(), inputs.end());
    written.insert(out);
    kernels.insert(p.kernel);
    run.ops.push_back(j);
  }
  return run.ops.size();
}

bool PassFusion::recordRun(const std::vector<PassPlan::Op>& ops, const Run& run, gpu::CommandList& commands,
                           const std::map<const gpu::Texture*, std::size_t>& lastUse,
                           const std::set<const gpu::Texture*>& visible) {
  const std::size_t n = run.ops.size();
  std::vector<gpu::TexturePtr> slots;
  auto slotOf = [&](const gpu::TexturePtr& t) {
    for (std::size_t s = 0; s < slots.size(); ++s)
      if (slots[s] == t) return int(s);
    slots.push_back(t);
    return int(slots.size()) - 1;
  };
  std::map<const gpu::Texture*, int> writer;  // texture -> the stage that wrote it
  std::vector<std::vector<StageInput>> inputs(n);
  for (std::size_t s = 0; s < n; ++s) {
    const auto& list = ops[run.ops[s]].pass->textures;
    for (std::size_t k = 0; k + 1 < list.size(); ++k) {
      auto w = writer.find(list[k].get());
      inputs[s].push_back(w != writer.end() ? StageInput{w->second, -1} : StageInput{-1, slotOf(list[k])});
    }
    writer[list.back().get()] = int(s);
  }
  // Outputs in between are written when read later or after the evaluation; the last always is.
  std::vector<int> outSlot(n, -1);
  std::set<const gpu::Texture*> unwritten;
  for (std::size_t s = 0; s + 1 < n; ++s) {
    const gpu::TexturePtr& out = ops[run.ops[s]].pass->textures.back();
    auto use = lastUse.find(out.get());
    if (visible.count(out.get()) || (use != lastUse.end() && use->second > run.ops.back())) outSlot[s] = slotOf(out);
    else unwritten.insert(out.get());
  }
  outSlot[n - 1] = slotOf(ops[run.ops.back()].pass->textures.back());
  if (slots.size() > kSlots || outSlot[n - 1] != int(slots.size()) - 1) return false;

  int header = 0;
  std::string body = "ivec2 stageGrid() { return imageSize(W" + std::to_string(outSlot[n - 1]) + "); }\n";
  std::string calls;
  std::vector<float> table(n * kStageP, 0.0f);
  for (std::size_t s = 0; s < n; ++s) {
    const PlannedPass& p = *ops[run.ops[s]].pass;
    const Stage& st = stage(p.kernel);
    header = std::max(header, st.header);
    body += stageText(st.text, p.kernel, int(s), inputs[s], st.shape.output, outSlot[s]) + "\n";
    calls += "  stage" + std::to_string(s) + "();\n";
    std::copy_n(p.P.begin(), std::min(p.P.size(), kStageP), table.begin() + s * kStageP);
  }
  const std::string source = kernelHeader(header) + "\n" + halfRounding() + body +
                             "void main() {\n  if (outsideOf(pixelID(), stageGrid())) return;\n" + calls + "}\n";
  const auto name = pipeline(source);
  if (!name) return false;
  commands.dispatch(*name, slots, {}, table);
  ++last_.runs;
  last_.merged += int(n);
  last_.unwritten.insert(unwritten.begin(), unwritten.end());
  return true;
}

std::string PassFusion::halfRounding() {
  // Between passes a value is stored in an rgba16f texture; between stages it must be rounded
  // the same way. Devices round to nearest, but some CPU drivers cut toward zero: one pixel
  // stored once tells which.
  if (!towardZero_) {
    towardZero_ = false;
    gpu::ShaderCompiler compiler(options_.cacheDir);
    const auto probe = compiler.compile(kernelHeader(0) + "\nvoid main() { imageStore(W0, ivec2(0), vec4(P[0])); }\n", "rounding");
    std::string error;
    gpu::TexturePtr pixel = device_.createTexture(1, 1, gpu::Format::rgba16Float);
    if (probe.ok() && pixel && device_.createPipeline("fusion-rounding", probe.spirv, &error)) {
      auto commands = device_.begin();
      const float between = 1.0f + 0.75f / 1024.0f;  // nearest: 1 + 1/1024; toward zero: 1
      const float P[] = {between};
      const gpu::TexturePtr list[] = {pixel};
      commands->dispatch("fusion-rounding", list, P);
      if (device_.submitAndWait(*commands)) {
        const auto bytes = device_.read(pixel);
        std::uint16_t h = 0;
        if (bytes.size() >= 2) std::memcpy(&h, bytes.data(), 2);
        towardZero_ = halfToFloat(h) == 1.0f;
      }
    }
  }
  if (!*towardZero_) return "vec4 stageHalf(vec4 v) { return vec4(unpackHalf2x16(packHalf2x16(v.xy)), unpackHalf2x16(packHalf2x16(v.zw))); }\n";
  // Toward zero: a normal half keeps the top 10 bits of the float's mantissa; below the
  // normals it counts in steps of 2^-24; past the largest finite half it stays at that.
  return "vec4 stageHalf(vec4 v) {\n"
         "  uvec4 bits = floatBitsToUint(v);\n"
         "  vec4 a = abs(v);\n"
         "  vec4 t = uintBitsToFloat(floatBitsToUint(a) & 0xffffe000u);\n"
         "  t = mix(t, floor(a * 16777216.0) / 16777216.0, lessThan(a, vec4(6.103515625e-5)));\n"
         "  t = mix(t, vec4(65504.0), greaterThan(a, vec4(65504.0)));\n"
         "  t = mix(t, a, isinf(v));\n"
         "  vec4 r = uintBitsToFloat(floatBitsToUint(t) | (bits & 0x80000000u));\n"
         "  return mix(r, v, isnan(v));\n"
         "}\n";
}

std::optional<std::string> PassFusion::pipeline(const std::string& source) {
  const std::string key = gpu::ShaderCompiler::hashOf(source);
  if (auto it = pipelines_.find(key); it != pipelines_.end())
    return it->second.empty() ? std::nullopt : std::optional<std::string>(it->second);
  gpu::ShaderCompiler compiler(options_.cacheDir);
  const auto result = compiler.compile(source, "fusion");
  const std::string name = "fused-" + key;
  std::string error = result.messages;
  if (!result.ok() || !device_.createPipeline(name, result.spirv, &error)) {
    // The passes then run one by one, as they would without merging: nothing is lost but time.
    if (!options_.errorLog.empty()) std::ofstream(options_.errorLog, std::ios::app) << "Fusion " << key << " : " << error << "\n";
    pipelines_[key] = "";
    return std::nullopt;
  }
  return pipelines_[key] = name;
}

void PassFusion::record(const PassPlan& plan, gpu::CommandList& commands, const std::set<const gpu::Texture*>& visible) {
  last_ = {};
  const auto& ops = plan.ops();
  std::map<const gpu::Texture*, std::size_t> lastUse;
  for (std::size_t i = 0; i < ops.size(); ++i) {
    for (const auto& t : ops[i].pass ? ops[i].pass->textures : ops[i].touched) lastUse[t.get()] = i;
    if (ops[i].pass) ++last_.passes;
  }
  Run run;
  for (std::size_t i = 0; i < ops.size();) {
    if (enabled && runAt(ops, i, run) > 1 && recordRun(ops, run, commands, lastUse, visible)) {
      i += run.ops.size();
      continue;
    }
    const PassPlan::Op& op = ops[i++];
    if (op.pass) commands.dispatch(op.pass->kernel, op.pass->textures, op.pass->P, op.pass->table, op.pass->span);
    else op.record(commands);
  }
}

}  // namespace ombrik
