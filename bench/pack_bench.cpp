// Packing a world whose rushes weigh `megabytes` in all (four files, plus computed results of a
// node in 200 small files), against `cp -r` of the same files in the same run. Packing is disk
// work: the ratio shows what the plan, the background thread and the status hops cost on top.
//
//   build/bench/pack_bench [megabytes]      (default 400; files go under $TMPDIR)
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "document/app_model.h"
#include "platform/scheduler.h"

using namespace ombrik;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

double seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

void writeBytes(const fs::path& path, std::size_t bytes) {
  fs::create_directories(path.parent_path());
  std::ofstream out(path, std::ios::binary);
  std::vector<char> block(1 << 20);
  for (std::size_t i = 0; i < block.size(); ++i) block[i] = static_cast<char>(i * 2654435761u >> 24);
  for (std::size_t done = 0; done < bytes; done += block.size())
    out.write(block.data(), static_cast<std::streamsize>(std::min(block.size(), bytes - done)));
}

}  // namespace

int main(int argc, char** argv) {
  const std::size_t megabytes = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 400;
  const char* tmp = std::getenv("TMPDIR");
  const fs::path root = fs::path(tmp && *tmp ? tmp : "/tmp") / ("ombrik-pack-bench-" + std::to_string(::getpid()));
  fs::remove_all(root);

  auto clock = std::make_shared<ManualScheduler>();
  AppModel m(AppModel::Options{.blankStart = true, .withEngine = false, .scheduler = clock,
                               .defaultsFile = (root / "defaults.conf").string(), .dataDir = root / "data"});
  // Four rushes on media nodes of one world, known to the project by their files.
  const Uuid world = *m._currentBatchID;
  std::vector<fs::path> files;
  for (int i = 0; i < 4; ++i) {
    files.push_back(root / "rushs" / ("plan_" + std::to_string(i) + ".mov"));
    writeBytes(files.back(), megabytes << 18);
    MediaItem item;
    item.id = Uuid::generate();
    item.name = files.back().filename().string();
    item.url = files.back();
    m._media.push_back(item);
    const Uuid node = m.addNode(NodeKind::media(), {0, 200.0 * i});
    m.setMedia(node, item.id);
  }
  const Uuid blur = m.addNode(*NodeKind::find("blur"), {400, 0});
  for (int i = 0; i < 200; ++i) {
    std::string name = "f";  // appended: GCC 12 warns falsely on a literal added to a temporary
    name += std::to_string(i) + ".exr";
    writeBytes(m.muxFolder(blur) / name, 64 << 10);
  }
  std::system("sync");

  auto quoted = [](const fs::path& p) {
    std::string q = "'";
    q += p.string();
    q += "'";
    return q;
  };
  std::string cp = "rm -rf ";
  cp += quoted(root / "copy");
  cp += " && cp -r ";
  cp += quoted(root / "rushs");
  cp += " ";
  cp += quoted(root / "copy");
  cp += " && cp -r ";
  cp += quoted(m.muxFolder(blur));
  cp += " ";
  cp += quoted(root / "copy" / "cache");
  cp += " && sync";
  // The peer before and after: the page cache favours whoever reads second, so the faster counts.
  auto peerRun = [&](bool& copied) {
    const auto t = Clock::now();
    copied = std::system(cp.c_str()) == 0;
    return seconds(Clock::now() - t);
  };
  bool copied = false, again = false;
  const double before = peerRun(copied);

  const auto t0 = Clock::now();
  bool done = false, ok = false;
  m.packWorld(world, root / "pack", [&](bool outcome) { done = true, ok = outcome; });
  while (!done) {
    clock->waitForThreads(0.05);
    clock->runAll();
  }
  const double copied0 = seconds(Clock::now() - t0);
  std::system("sync");
  const double pack = seconds(Clock::now() - t0);
  std::printf("  (copy %.3f s, then sync)\n", copied0);
  const double peer = std::min(before, peerRun(again));
  copied = copied && again;

  std::printf("pack of %zu MB in 4 rushes + 200 results: %s\n", megabytes, ok ? m._status.c_str() : "FAILED");
  std::printf("  packWorld %.3f s   cp -r %.3f s%s   ratio %.2f\n", pack, peer, copied ? "" : " (failed)", pack / peer);
  fs::remove_all(root);
  return ok && copied ? 0 : 1;
}
