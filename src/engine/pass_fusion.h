#pragma once
// The passes of one evaluation are held in a plan until it ends; then runs of them are merged
// into one kernel each and everything goes to the device's command list in order.
//
// A run is a pass that writes only its own pixel, followed by passes that read their inputs only
// at that pixel and read something the run wrote (a colour correction after a resample, grain
// after a glow's screen). The run becomes one program: each thread computes every stage in
// turn, values passing between stages in registers rounded to half floats exactly as the texture
// between them would store them, so a merged run gives the same picture as its passes one by
// one. A texture in between is written only when a command after the run, or something after the
// evaluation (`visible`), reads it.
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "gpu/device.h"

namespace ombrik {

struct PlannedPass {
  std::string kernel;
  std::vector<gpu::TexturePtr> textures;  // the last one is the grid
  std::vector<float> P, table;
  gpu::Span span;
};

class PassPlan {
public:
  using Record = std::function<void(gpu::CommandList&)>;
  struct Op {
    std::optional<PlannedPass> pass;
    Record record;                         // any other command, when there is no pass
    std::vector<gpu::TexturePtr> touched;  // what that command reads or writes
  };
  void dispatch(PlannedPass pass) { ops_.push_back({std::move(pass), {}, {}}); }
  void other(Record record, std::vector<gpu::TexturePtr> touched) {
    ops_.push_back({std::nullopt, std::move(record), std::move(touched)});
  }
  const std::vector<Op>& ops() const { return ops_; }

private:
  std::vector<Op> ops_;
};

class PassFusion {
public:
  struct Options {
    std::filesystem::path cacheDir;  // SPIR-V of the merged programs
    std::filesystem::path errorLog;  // a merged program that fails to compile is noted there
  };
  PassFusion(gpu::Device& device, Options options);
  ~PassFusion();

  // Records the plan into `commands`, runs merged unless `enabled` is off.
  void record(const PassPlan& plan, gpu::CommandList& commands, const std::set<const gpu::Texture*>& visible);
  bool enabled = true;

  struct Stats {
    int passes = 0;   // passes in the plan
    int runs = 0;     // merged programs dispatched
    int merged = 0;   // passes those runs stood for
    std::set<const gpu::Texture*> unwritten;  // textures a run kept in registers
  };
  const Stats& last() const { return last_; }

  // What the kernel library says of a kernel as a stage (false for an unknown one).
  bool canLead(const std::string& kernel);
  bool pixelWise(const std::string& kernel);

private:
  struct Stage;
  struct Run;
  const Stage& stage(const std::string& kernel);
  std::size_t runAt(const std::vector<PassPlan::Op>& ops, std::size_t i, Run& run);
  bool recordRun(const std::vector<PassPlan::Op>& ops, const Run& run, gpu::CommandList& commands,
                 const std::map<const gpu::Texture*, std::size_t>& lastUse, const std::set<const gpu::Texture*>& visible);
  std::optional<std::string> pipeline(const std::string& source);
  std::string halfRounding();  // the program text of stageHalf, as this device stores half floats

  gpu::Device& device_;
  Options options_;
  std::map<std::string, std::unique_ptr<Stage>> stages_;
  std::map<int, std::vector<std::string>> helpers_;  // header level -> functions taking a texture
  std::map<std::string, std::string> pipelines_;  // program hash -> pipeline name, "" when it failed
  Stats last_;
  std::optional<bool> towardZero_;
};

}  // namespace ombrik
