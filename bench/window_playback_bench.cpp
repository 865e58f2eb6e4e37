// Playback of a 1080p clip in the desktop window, as the artist sees it: media → colour → blur →
// output at half preview, the main window on screen and the Qt event loop driving everything.
// Measures the first pass (every frame decoded, evaluated and cached), then the cached pass: the
// pictures the viewer actually read back and painted each second, the model's own rate, and
// whether memory grows while the cache loops. The ffmpeg program runs a comparable chain
// (decode, half size, a colour curve, a Gaussian blur, to RGBA) in the same run.
//
//   build/bench/window_playback_bench [frames] [cached seconds] [native]     (default 100, 4)
//
// With "native" the graph is media → output alone: the clip plays from its own player (no
// cache), and the "first pass" is skipped; the second pass then measures the native path.
//
// Run it on a display (xvfb-run with QT_QPA_PLATFORM=xcb) or with QT_QPA_PLATFORM=offscreen.
#include <QApplication>
#include <QEvent>
#include <QGuiApplication>
#include <QTimer>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

#include "bench_clips.h"
#include "document/app_model.h"
#include "document/play_state.h"
#include "engine/engine.h"
#include "platform/system_memory.h"
#include "platform/user_defaults.h"
#include "shell/dark_theme.h"
#include "shell/main_window.h"
#include "shell/viewer_widget.h"

using namespace ombrik;
namespace fs = std::filesystem;
using bench::Clock;
using bench::seconds;

namespace {


double peakRssMB() {
  rusage u{};
  getrusage(RUSAGE_SELF, &u);
  return u.ru_maxrss / 1024.0;  // kilobytes on Linux
}

// The peak never goes down; the current size shows whether a loop keeps what it takes.
double currentRssMB() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line))
    if (line.rfind("VmRSS:", 0) == 0) return std::atof(line.c_str() + 6) / 1024.0;
  return 0;
}

// Paint events that reach the viewer: a picture read back is only seen once it is painted.
class PaintCounter : public QObject {
public:
  int paints = 0;

protected:
  bool eventFilter(QObject* watched, QEvent* event) override {
    if (event->type() == QEvent::Paint) ++paints;
    return QObject::eventFilter(watched, event);
  }
};

// The pictures the viewer reads back, each with the frame it was read from. The viewer reads on
// the window's refresh tick; this filter sees each tick just before the window does, so the
// play display's frame then is the one the refresh reads, and a new picture seen at the next
// tick came from it. Sampling after a turn of the loop instead could mix up the two, as one turn
// may run the refresh and a play tick.
class PictureWatch : public QObject {
public:
  PictureWatch(const ViewerWidget& viewer, const AppModel& model) : viewer_(viewer), model_(model) {}
  std::vector<int> pictures;

protected:
  bool eventFilter(QObject* watched, QEvent* event) override {
    if (event->type() == QEvent::Timer) {
      const qint64 key = viewer_.picture().cacheKey();
      if (key != lastKey_ && readFrom_ >= 0) pictures.push_back(readFrom_);
      lastKey_ = key;
      readFrom_ = model_.play && model_._isPlaying ? model_.play->displayFrame : -1;
    }
    return QObject::eventFilter(watched, event);
  }

private:
  const ViewerWidget& viewer_;
  const AppModel& model_;
  qint64 lastKey_ = 0;
  int readFrom_ = -1;
};

// The model's side, sampled after every turn of the loop (the play clock ticks every few
// milliseconds, far more often than it moves): the display's frames and the order in which
// frames enter the cache.
struct ModelWatch {
  explicit ModelWatch(const AppModel& m) : model(m) {}
  const AppModel& model;
  std::vector<int> shown;
  std::vector<int> cacheOrder;
  std::set<int> seen;
  std::vector<std::string> statuses;  // each new status text
  void sample() {
    const int frame = model.play ? model.play->displayFrame : -1;
    if (shown.empty() || shown.back() != frame) shown.push_back(frame);
    if (model._cachedFrames.size() != seen.size())
      for (int f : model._cachedFrames)
        if (seen.insert(f).second) cacheOrder.push_back(f);
    if (statuses.empty() || statuses.back() != model._status) statuses.push_back(model._status);
  }
};

// Steps of a sequence of frames played in a loop of n: to the next frame, a jump forward past
// some, the same frame again, or back.
struct Steps {
  int next = 0, jumps = 0, repeats = 0, back = 0;
};
Steps steps(const std::vector<int>& frames, int n) {
  Steps s;
  for (std::size_t i = 1; i < frames.size(); ++i) {
    const int d = ((frames[i] - frames[i - 1]) % n + n) % n;
    if (d == 1) ++s.next;
    else if (d == 0) ++s.repeats;
    else if (d < n / 2) ++s.jumps;
    else ++s.back;
  }
  return s;
}

// A sequence with each break in its counting order kept, for reading by eye: 0-12 15 14 16-40.
std::string runs(const std::vector<int>& frames) {
  std::string text;
  for (std::size_t i = 0; i < frames.size(); ++i) {
    const bool follows = i > 0 && frames[i] == frames[i - 1] + 1;
    const bool next = i + 1 < frames.size() && frames[i + 1] == frames[i] + 1;
    if (follows && next) continue;
    if (i > 0) text += follows ? '-' : ' ';
    text += std::to_string(frames[i]);
  }
  return text;
}

// One turn of the loop: waits for the next event (the play clock ticks every few milliseconds).
void turn() { QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents); }

}  // namespace

int main(int argc, char** argv) {
  const int frames = argc > 1 ? std::max(10, std::atoi(argv[1])) : 100;
  const double cachedSeconds = argc > 2 ? std::max(1.0, std::atof(argv[2])) : 4.0;
  const bool native = argc > 3 && std::string(argv[3]) == "native";
  QApplication app(argc, argv);
  applyDarkTheme(app);

  const fs::path dir = fs::temp_directory_path() / ("ombrik-window-play-" + std::to_string(getpid()));
  fs::create_directories(dir);
  const fs::path clip = dir / "clip.mp4";
  if (!bench::writeHdClip(clip, frames, bench::kH264Veryfast)) return std::fprintf(stderr, "could not write the clip\n"), 1;

  const double rssStart = currentRssMB();
  AppModel model(AppModel::Options{.blankStart = true, .defaultsFile = (dir / "d.conf").string(),
                                   .dataDir = dir / "data"});
  if (!model.engine) return std::fprintf(stderr, "%s\n", model._status.c_str()), 1;
  // A known share of the memory, so the cache budget doesn't depend on a setting left behind.
  const double boost = 40;
  model.defaults().set("boostPercent", boost);
  const auto world = model.createWorld(clip);
  if (!world) return std::fprintf(stderr, "%s\n", model._status.c_str()), 1;
  model.openBatch(*world);
  std::optional<Uuid> out;
  for (const auto& n : model._nodes)
    if (n.kind->id == "output") out = n.id;
  auto wireInto = [&](const Uuid& to) -> std::optional<Uuid> {
    for (const auto& e : model._edges)
      if (e.to == to && e.port == 0) return e.id;
    return std::nullopt;
  };
  if (!out || !wireInto(*out)) return std::fprintf(stderr, "the new world has no wire into its output\n"), 1;
  if (!native) {
    const Uuid color = model.addNode(NodeKind::color(), {400, 140});
    model.intercalate(color, *wireInto(*out));
    const Uuid blur = model.addNode(*NodeKind::find("blur"), {500, 140});
    model.intercalate(blur, *wireInto(*out));
    model.setParams(color, {{"exposure", 0.3}});
  }
  model.select(std::nullopt);  // the output is shown, and played
  model.setPreviewScale(0.5);

  MainWindow window(model);
  window.resize(1280, 800);
  window.show();
  PaintCounter paints;
  window.viewer()->installEventFilter(&paints);
  PictureWatch pictures(*window.viewer(), model);
  const auto timers = window.findChildren<QTimer*>(Qt::FindDirectChildrenOnly);
  if (timers.size() != 1) return std::fprintf(stderr, "expected one refresh timer on the window\n"), 1;
  timers.front()->installEventFilter(&pictures);

  // The first render has to land before playing, as it would before the artist presses play.
  auto t0 = Clock::now();
  while (window.viewer()->picture().isNull() && seconds(t0) < 60) turn();
  if (window.viewer()->picture().isNull()) return std::fprintf(stderr, "no picture in the viewer after 60 s\n"), 1;
  const double firstRender = seconds(t0);
  const int total = model.pbFrames();
  const double rssReady = currentRssMB(), peakReady = peakRssMB();

  // First pass: until every frame is in the cache.
  ModelWatch fillWatch(model);
  paints.paints = 0;
  model.togglePlay();
  t0 = Clock::now();
  while (!native && model._cachedFrames.size() < std::size_t(total) && seconds(t0) < 600) {
    turn();
    fillWatch.sample();
  }
  const double fill = seconds(t0);
  const std::size_t cached = model._cachedFrames.size();
  const std::vector<int> fillPictures = std::move(pictures.pictures);
  const int fillPaints = paints.paints;

  // A second after the last frame came in, the rate in the status covers only the cached loop.
  t0 = Clock::now();
  while (seconds(t0) < 1.0) turn();
  const double rssCached = currentRssMB(), peakCached = peakRssMB();

  // Cached pass.
  ModelWatch loopWatch(model);
  pictures.pictures.clear();
  paints.paints = 0;
  t0 = Clock::now();
  long turns = 0;
  std::vector<double> rssEvery5s;  // whether memory settles or keeps climbing
  while (seconds(t0) < cachedSeconds) {
    turn();
    ++turns;
    loopWatch.sample();
    if (seconds(t0) >= 5.0 * double(rssEvery5s.size() + 1)) rssEvery5s.push_back(currentRssMB());
  }
  const double loop = seconds(t0);
  const bool stillNative = model.play && model.play->native;
  const double rssAfter = currentRssMB(), peakAfter = peakRssMB();
  const std::vector<int> loopPictures = std::move(pictures.pictures);
  const int loopPaints = paints.paints;
  model.togglePlay();
  QCoreApplication::processEvents();

  std::printf("%s, on %ld cores, platform %s; %d frames of 1920x1080 at %.0f fps, half preview\n",
              model.engine->deviceDescription().c_str(), sysconf(_SC_NPROCESSORS_ONLN),
              qPrintable(QGuiApplication::platformName()), total, model.pbFPS());
  std::printf("window %dx%d, viewer %dx%d, picture read back %dx%d, cache frames %dx%d, budget %.2f GB "
              "(boost %.0f %% of %.1f GB)\n",
              window.width(), window.height(), window.viewer()->width(), window.viewer()->height(),
              window.viewer()->picture().width(), window.viewer()->picture().height(), model.play->cacheW,
              model.play->cacheH, playCacheBytes(double(physicalMemoryBytes()), boost) / 1e9, boost,
              physicalMemoryBytes() / 1e9);
  std::printf("first render in the window: %.2f s\n", firstRender);
  if (native) std::printf("native path: %s at the end of the run\n", stillNative ? "still on" : "left (fell back to the cache)");
  std::printf("\n");

  auto stepsText = [&](const std::vector<int>& seq) {
    const Steps s = steps(seq, total);
    char text[128];
    std::snprintf(text, sizeof text, "%d next, %d jumps forward, %d repeats, %d back", s.next, s.jumps, s.repeats,
                  s.back);
    return std::string(text);
  };
  const int fillShown = int(fillWatch.shown.size()) - 1, loopShown = int(loopWatch.shown.size()) - 1;
  std::printf("%-34s %7.1f fps  (%zu frames in %.2f s)\n", "first pass, frames cached", cached / fill, cached, fill);
  std::printf("%-34s %7.1f fps  (%zu; %s)\n", "first pass, pictures in the viewer", fillPictures.size() / fill,
              fillPictures.size(), stepsText(fillPictures).c_str());
  std::printf("%-34s %7.1f fps\n", "first pass, viewer paints", fillPaints / fill);
  std::printf("%-34s %7.1f fps  (%d; %s)\n", "first pass, play display", fillShown / fill, fillShown,
              stepsText(fillWatch.shown).c_str());
  std::printf("%-34s %s\n", "first pass, display order", runs(fillWatch.shown).c_str());
  std::printf("%-34s %s\n", "first pass, cache order", runs(fillWatch.cacheOrder).c_str());
  std::printf("%-34s %s\n", "first pass, viewer order", runs(fillPictures).c_str());
  for (const auto& s : fillWatch.statuses)
    if (!s.empty()) std::printf("%-34s %s\n", "first pass, status", s.c_str());
  std::printf("%-34s %7.1f fps  (%zu in %.2f s, %ld loop turns; %s)\n", "cached pass, pictures in the viewer",
              loopPictures.size() / loop, loopPictures.size(), loop, turns, stepsText(loopPictures).c_str());
  std::printf("%-34s %7.1f fps\n", "cached pass, viewer paints", loopPaints / loop);
  std::printf("%-34s %7.1f fps  (%d; %s)\n", "cached pass, play display", loopShown / loop, loopShown,
              stepsText(loopWatch.shown).c_str());
  for (const auto& s : loopWatch.statuses) std::printf("%-34s %s\n", "cached pass, status", s.c_str());
  std::printf("%-34s %7.0f MB at start, %.0f MB ready, %.0f MB cached, %.0f MB after the loop\n", "RSS now", rssStart,
              rssReady, rssCached, rssAfter);
  std::printf("%-34s %7.0f MB ready, %.0f MB cached, %.0f MB after the loop\n", "RSS peak", peakReady, peakCached,
              peakAfter);
  std::printf("%-34s", "RSS every 5 s of the pass");
  for (double r : rssEvery5s) std::printf(" %.0f", r);
  std::printf(" MB\n");
  std::printf("%-34s %+7.1f MB now, %+.1f MB peak\n", "RSS over the cached pass", rssAfter - rssCached,
              peakAfter - peakCached);

  const double peerTime = bench::peerChainSeconds(clip);
  if (peerTime < 0) std::printf("ffmpeg peer failed\n");
  else
    std::printf("%-34s %7.1f fps  (%d frames in %.2f s; decode, half size, eq, gblur, to RGBA)\n", "ffmpeg peer",
                frames / peerTime, frames, peerTime);
  fs::remove_all(dir);
  return 0;
}
