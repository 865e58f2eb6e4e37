// Loading and evaluating long chains: a still → N colour nodes → output, written as a project file,
// opened by the desktop's model (codec, media, history) and evaluated once in full, for N = 1,000,
// 10,000 and 100,000 by default. Each size runs in its own child process so that its peak memory
// (getrusage of the child) is its own. Growth near 10x per row means near-linear. The peer in the
// same run: oiiotool applying the same N gains to the same still in one command, its time and
// peak memory measured the same way.
//
//   build/bench/chain_bench [N ...]      (OMBRIK_GPU=cpu forces lavapipe)
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <OpenImageIO/imageio.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "document/app_model.h"
#include "document/project_file.h"
#include "engine/engine.h"
#include "platform/scheduler.h"

using namespace ombrik;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {
double seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

void writeStill(const fs::path& path, int w, int h) {
  std::vector<float> px(std::size_t(w) * h * 3);
  for (std::size_t i = 0; i < px.size(); ++i) px[i] = float(i % 97) / 96.f;
  auto out = OIIO::ImageOutput::create(path.string());
  out->open(path.string(), OIIO::ImageSpec(w, h, 3, OIIO::TypeDesc::UINT8));
  out->write_image(OIIO::TypeDesc::FLOAT, px.data());
  out->close();
}

void writeChain(const fs::path& project, const fs::path& still, int count) {
  ProjectFile f;
  const Uuid mediaID = Uuid::generate();
  f.media = {{mediaID, still.filename().string(), still.string()}};
  Batch b;
  b.id = Uuid::generate();
  b.name = "Chaîne";
  Node media(NodeKind::media());
  media.mediaID = mediaID;
  b.nodes.push_back(media);
  for (int i = 0; i < count; ++i) {
    Node color(NodeKind::color());
    color.params["gain"] = 1.0 + 0.0001 * (i % 7);
    b.edges.push_back({Uuid::generate(), b.nodes.back().id, color.id, 0, 0});
    b.nodes.push_back(color);
  }
  Node output(NodeKind::output());
  b.edges.push_back({Uuid::generate(), b.nodes.back().id, output.id, 0, 0});
  b.nodes.push_back(output);
  for (std::size_t i = 0; i < b.nodes.size(); ++i) b.positions[b.nodes[i].id] = {double(i % 100) * 120, double(i / 100) * 80};
  f.batches = {b};
  f.current = b.id;
  std::ofstream(project) << *ProjectCodec::encode(f);
}

// In the child: build, load, evaluate; prints one row without the memory column.
int runOne(const fs::path& dir, int count) {
  const fs::path project = dir / ("chain" + std::to_string(count) + ".ombrik");
  const auto t0 = Clock::now();
  writeChain(project, dir / "still.png", count);
  const auto t1 = Clock::now();
  AppModel model(AppModel::Options{.installed = false, .blankStart = true, .withEngine = true,
                                   .scheduler = std::make_shared<ManualScheduler>(),
                                   .defaultsFile = (dir / "defaults.conf").string(), .dataDir = dir / "data"});
  if (!model.engine || !model.load(project)) return std::fprintf(stderr, "load failed: %s\n", model._status.c_str()), 1;
  const auto t2 = Clock::now();
  model.performRender(true);
  const auto t3 = Clock::now();
  const bool shown = model.engine->outputs.size() >= std::size_t(count);
  std::printf("%8d  %7.2f  %7.2f  %7.2f  %s", count, seconds(t1 - t0), seconds(t2 - t1), seconds(t3 - t2),
              shown ? "ok  " : "MISSING");
  std::fflush(stdout);
  return shown ? 0 : 1;
}
// oiiotool still.png --mulc g ... -o out.exr, in a child; false when it can't run.
bool runPeer(const fs::path& dir, int count, double* seconds_, double* peakMB) {
  std::vector<std::string> args{"oiiotool", (dir / "still.png").string()};
  for (int i = 0; i < count; ++i) args.insert(args.end(), {"--mulc", std::to_string(1.0 + 0.0001 * (i % 7))});
  args.insert(args.end(), {"-o", (dir / "peer.exr").string()});
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  const auto t0 = Clock::now();
  const pid_t child = fork();
  if (child == 0) {
    execvp("oiiotool", argv.data());
    std::_Exit(127);
  }
  int status = 0;
  rusage usage{};
  wait4(child, &status, 0, &usage);
  *seconds_ = seconds(Clock::now() - t0);
  *peakMB = double(usage.ru_maxrss) / 1024;
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}
}  // namespace

int main(int argc, char** argv) {
  std::vector<int> sizes;
  for (int i = 1; i < argc; ++i) sizes.push_back(std::atoi(argv[i]));
  if (sizes.empty()) sizes = {1000, 10000, 100000};
  const fs::path dir = fs::temp_directory_path() / ("ombrik-chain-" + std::to_string(getpid()));
  fs::create_directories(dir);
  writeStill(dir / "still.png", 64, 36);
  std::printf("   nodes  write s   load s   eval s        peak MB   oiiotool s  peak MB\n");
  std::fflush(stdout);
  int failures = 0;
  for (int n : sizes) {
    std::fflush(stdout);  // else the child inherits and prints the parent's buffered row again
    const pid_t child = fork();
    if (child == 0) std::_Exit(runOne(dir, n));
    int status = 0;
    rusage usage{};
    wait4(child, &status, 0, &usage);
    if (!WIFEXITED(status)) std::printf("%8d  died (signal %d)", n, WIFSIGNALED(status) ? WTERMSIG(status) : 0);
    std::printf("  %8.0f", double(usage.ru_maxrss) / 1024);
    double peerSeconds = 0, peerMB = 0;
    if (runPeer(dir, n, &peerSeconds, &peerMB)) std::printf("   %10.2f %8.0f\n", peerSeconds, peerMB);
    else std::printf("   (oiiotool failed)\n");
    failures += !(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }
  fs::remove_all(dir);
  return failures;
}
