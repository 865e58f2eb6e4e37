// 1,000 undo steps on a 200-node graph: the time of a change plus its commit, the time of an
// undo, and the memory the history holds, next to what 200 deep copies of the graph would take.
//
//   build/bench/undo_history_bench
#include <chrono>
#include <cstdio>
#include <fstream>
#include <random>
#include <unistd.h>

#include "document/app_model.h"
#include "platform/scheduler.h"

using namespace ombrik;
using Clock = std::chrono::steady_clock;

static double residentMiB() {
  std::ifstream statm("/proc/self/statm");
  long pages = 0, resident = 0;
  statm >> pages >> resident;
  return resident * double(sysconf(_SC_PAGESIZE)) / (1024.0 * 1024.0);
}

int main() {
  auto clock = std::make_shared<ManualScheduler>();
  AppModel m(AppModel::Options{.blankStart = true, .withEngine = false, .scheduler = clock});
  std::mt19937 rng(7);
  const char* kinds[] = {"mask", "color", "beauty", "glow", "xform", "grain", "comp", "tracker"};
  std::vector<Uuid> ids;
  for (int i = 0; i < 199; ++i) {
    const Uuid id = m.addNode(*NodeKind::find(kinds[i % 8]), {double(i), 0});
    Node& n = *m.nodeByID(id);
    for (int f = 0; f < 100; ++f) n.track[f] = {double(f), 50, 20, 30, 0};  // a tracked mask's weight
    for (int p = 0; p < 24; ++p) n.shape.push_back({{p * 0.01, 0.5}, {0, 0}, {0, 0}});
    ids.push_back(id);
  }
  clock->advance(1);
  m.resetHistory();
  const double before = residentMiB();

  auto t0 = Clock::now();
  for (int step = 0; step < 1000; ++step) {
    m.setParams(ids[rng() % ids.size()], {{"exposure", step * 0.001}});
    clock->advance(0.4);  // a pause: each change is its own step
  }
  const double perStep = std::chrono::duration<double, std::micro>(Clock::now() - t0).count() / 1000;
  const double history = residentMiB() - before;

  t0 = Clock::now();
  int undone = 0;
  while (!m.history.undo.empty()) m.undo(), ++undone;
  const double perUndo = std::chrono::duration<double, std::micro>(Clock::now() - t0).count() / std::max(1, undone);

  // The same 200 states kept as deep copies, for comparison.
  const double beforeCopies = residentMiB();
  std::vector<GraphSnapshot> copies;
  for (int i = 0; i < 200; ++i) copies.push_back(m.snapshot());
  const double deep = residentMiB() - beforeCopies;

  std::printf("graph: %zu nodes, each with a 100-frame track and a 24-point shape\n", m._nodes.size());
  std::printf("1000 steps: %.0f us per change + commit; history holds %zu steps (cap 200)\n", perStep,
              std::size_t(200));
  std::printf("undo: %.0f us per step over %d steps\n", perUndo, undone);
  std::printf("memory: history %.1f MiB for 200 shared steps; 200 deep copies %.1f MiB\n", history, deep);
  return copies.size() == 200 ? 0 : 1;
}
