// Mutation fuzzing of the project reader: random damage to valid project texts, half of it to
// the bytes (flipped bytes, cut and repeated spans, swapped JSON tokens, huge and non-finite
// numbers, deep nesting), half to the tree (values swapped for others of any type, members
// dropped or repeated, identifiers moved elsewhere) so that most inputs still read. The
// seeds hold what the reader walks deepest: groups inside groups, masks, trackers, keyframes,
// and the records carried as they are (timelines, user nodes), folders of worlds.
// Each input goes to the codec; whatever it accepts must write back and read again to an equal
// world, then is written to disk, opened by a model the way the desktop opens a file, and
// evaluated once on the CPU Vulkan driver at a small comp. Nothing may crash or hang.
//
//   OMBRIK_GPU=cpu build/fuzz/project_reader_fuzz [iterations] [seed] [seconds]
//   iterations 0: no count limit; seconds: stop after that long (e.g. 600 for ten minutes)
//   A failing input, or the one that crashed, is kept in ./project_reader_fuzz_failure.tarvom;
//   `project_reader_fuzz --replay FILE...` runs kept inputs again.
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <vector>

#include "document/app_model.h"
#include "document/project_file.h"
#include "engine/engine.h"
#include "groups/node_group.h"
#include "platform/scheduler.h"

using namespace ombrik;
namespace fs = std::filesystem;

namespace {

Node make(const char* kind) { return Node(*NodeKind::find(kind)); }

Keyframe key(std::mt19937_64& rng) {
  Keyframe k;
  k.f = std::int64_t(rng() % 100);
  k.v = double(rng() % 1000) / 500;
  k.interp = KeyInterp(rng() % 3);
  k.outSlope = 0.1;
  return k;
}

// A group node `levels` deep: a colour node, the next group down, a glow, wired in a chain,
// with two outside inputs, a control on each end and the controls' values.
Node groupNode(std::mt19937_64& rng, int levels) {
  NodeGroup g;
  Node color = make("color"), glow = make("glow");
  color.params["sat"] = double(rng() % 100) / 50;
  color.anim["exposure"] = {key(rng), key(rng)};
  g.nodes.push_back(color);
  if (levels > 1) g.nodes.push_back(groupNode(rng, levels - 1));
  g.nodes.push_back(glow);
  for (std::size_t i = 0; i + 1 < g.nodes.size(); ++i)
    g.edges.push_back({Uuid::generate(), g.nodes[i].id, g.nodes[i + 1].id, 0, 0});
  for (const auto& n : g.nodes) g.positions[n.id] = {double(rng() % 400), double(rng() % 300)};
  g.inputs = {GroupInput{"Front", false, {{color.id, 0}}}, GroupInput{"Matte", true, {{color.id, 1}, {glow.id, 1}}}};
  g.output = glow.id;
  g.controls = {{color.id, "sat", "Saturation"}, {glow.id, "intensity", "Éclat"}};
  g.info = "Look";
  g.author = "fuzz";
  Node n(NodeKind::group("Look " + std::to_string(levels), g));
  n.group = g;
  n.params["c0"] = 0.7;
  n.params["c1"] = 1.5;
  return n;
}

// A small clip written by hand (YUV4MPEG: a header, then raw planes), so that the worlds have a
// picture to work on: a few grey frames with a ramp.
fs::path writeClip(const fs::path& out) {
  constexpr int w = 160, h = 90, frames = 3;
  std::ofstream f(out, std::ios::binary);
  f << "YUV4MPEG2 W" << w << " H" << h << " F25:1 Ip A1:1 C420jpeg\n";
  for (int i = 0; i < frames; ++i) {
    f << "FRAME\n";
    for (int p = 0; p < w * h; ++p) f.put(char(16 + (p % w) + 20 * i));
    f << std::string(w * h / 2, char(128));
  }
  return out;
}

std::string seedProject(std::mt19937_64& rng, const fs::path& clip) {
  ProjectFile f;
  f.media = {{Uuid::generate(), "plan.y4m", clip.string()}};
  Batch b;
  b.id = Uuid::generate();
  b.name = "Monde";
  for (const char* kind : {"media", "mask", "color", "group", "comp", "tracker", "meshwarp", "motionvec", "bodymask",
                           "blur", "output"}) {
    Node n = std::string(kind) == "group" ? groupNode(rng, 1 + int(rng() % 3)) : make(kind);
    if (std::string(kind) == "media") n.mediaID = f.media[0].id;
    n.track[int(rng() % 50)] = {1, 2, 3, 4, 5};
    n.shape = {{{0.1, 0.2}, {0.3, 0.4}, {0.5, 0.6}}};
    n.magicPoints = {{{0.5, 0.5}, true}};
    n.anim["x"] = {key(rng), key(rng)};
    if (std::string(kind) == "tracker") {
      TrackerPt t;
      t.id = Uuid::generate();
      t.path[3] = {0.1, 0.2};
      t.off[4] = {0.01, 0.02};
      t.half = Size{0.05, 0.04};
      n.trackers = {t};
    }
    if (std::string(kind) == "mask") {
      GMask second;
      second.params = {{"cx", 10}, {"cy", 20}};
      second.track[1] = {1, 2, 3, 4, 5};
      second.pins[2] = {1, 2, 3, 4, 5};
      n.masks = {GMask{}, second};
      n.maskIndex = 1;
    }
    if (std::string(kind) == "meshwarp") n.meshTrack[2] = {{0.1, 0.2}, {0.3, 0.4}};
    b.positions[n.id] = {1, 2};
    b.nodes.push_back(n);
  }
  // The clip feeds every node; mattes go to the matte ports, the Composite to the Sortie.
  auto wire = [&](int from, int to, int port) {
    b.edges.push_back({Uuid::generate(), b.nodes[from].id, b.nodes[to].id, port, 0});
  };
  for (int i = 1; i <= 9; ++i) wire(0, i, 0);
  wire(1, 2, 1), wire(1, 3, 1), wire(8, 9, 1), wire(2, 4, 1), wire(1, 4, 2), wire(4, 10, 0);
  b.openGroups = {OpenGroup{Uuid::generate(), "G", {b.nodes[0].id}, {{b.nodes[2].id, "sat", "S"}}, "", ""}};
  b.mediaID = f.media[0].id;
  f.batches = {b};
  f.current = b.id;
  f.recent = {"color", "group"};
  Timeline cut{Uuid::generate(), "Montage", 25, 640, 360, {}, 48, std::vector<double>{0.1, 0.2, 0.3}, "/films/f.mov"};
  cut.layers = {{Uuid::generate(), "A", LayerSource::batch(b.id), 0, 3, 24, true, 0.5, 2},
                {Uuid::generate(), "B", LayerSource::media(f.media[0].id), 24, 0, 24, false, 1, 0}};
  f.timelines = {cut};
  f.groups = {WorldGroup{Uuid::generate(), "Plans", std::vector<double>{150, 160}}, WorldGroup{Uuid::generate(), "Vide", std::nullopt}};
  f.userNodesJSON = R"([{"name":"Mon look","graph":{"nodes":[],"edges":[]},"tags":[null,1.5,"x"]}])";
  return *ProjectCodec::encode(f);
}

const char* const kTokens[] = {"null", "true", "false", "0", "-1", "1e308", "-1e308", "1e999", "NaN", "\"\"", "[]",
                               "{}", "[[[[", "]]]]", "\"abc\"", "2147483648", "-9223372036854775809", "0.5",
                               "\"00000000-0000-0000-0000-000000000000\"", "\"\xC3\x28\"", "\"\\u0000\"", ",",
                               "\"group\"", "\"output\"", "\"c0\"", "\"/\""};

std::string mutate(const std::string& in, std::mt19937_64& rng) {
  std::string s = in;
  const int rounds = 1 + int(rng() % 4);
  for (int r = 0; r < rounds && !s.empty(); ++r) {
    const std::size_t at = rng() % s.size();
    switch (rng() % 8) {
      case 0: s[at] = char(rng()); break;                                  // flip a byte
      case 1: s.erase(at, 1 + rng() % 16); break;                           // cut
      case 2: s.insert(at, s.substr(rng() % s.size(), 1 + rng() % 32)); break;  // repeat a span
      case 3: s.resize(at); break;                                          // truncate
      case 4: {                                                             // replace a value by a token
        const std::size_t end = s.find_first_of(",]}", at);
        s.replace(at, (end == std::string::npos ? s.size() : end) - at, kTokens[rng() % std::size(kTokens)]);
        break;
      }
      case 5: s.insert(at, kTokens[rng() % std::size(kTokens)]); break;
      case 6: {  // a number into something else
        const std::size_t digit = s.find_first_of("0123456789", at);
        if (digit != std::string::npos) s.replace(digit, 1, kTokens[rng() % std::size(kTokens)]);
        break;
      }
      case 7: s.insert(at, std::string(1 + rng() % 3000, rng() % 2 ? '[' : '{')); break;  // deep nesting
    }
  }
  return s;
}

// Damage that keeps the text JSON: the reader's checks of types, ranges and references are
// what gets hit, and what passes them reaches the model and the engine.
std::string mutateTree(const std::string& in, std::mt19937_64& rng) {
  using json = nlohmann::json;
  json root = json::parse(in);
  std::vector<json*> all{&root};
  for (std::size_t i = 0; i < all.size(); ++i)  // every value, breadth first
    if (all[i]->is_structured())
      for (auto& child : *all[i]) all.push_back(&child);
  std::vector<std::string> strings;  // identifiers and kinds, to move elsewhere
  for (const json* v : all)
    if (v->is_string()) strings.push_back(v->get<std::string>());
  const double numbers[] = {0, -1, 1, 0.5, -0.5, 7, 1e9, -1e9, 1e-12, 1e308, -1e308, 2147483648.0, 65536, 1e5};
  const int rounds = 1 + int(rng() % 3);
  for (int r = 0; r < rounds; ++r) {
    json& v = *all[rng() % all.size()];
    switch (rng() % 6) {
      case 0: v = numbers[rng() % std::size(numbers)]; break;
      case 1: v = strings[rng() % strings.size()]; break;
      case 2: v = json(*all[rng() % all.size()]); break;  // a copy of any other value
      case 3:
        if (v.is_object() && !v.empty()) v.erase(std::string(std::next(v.begin(), long(rng() % v.size())).key()));
        else if (v.is_array() && !v.empty()) v.erase(rng() % v.size());
        break;
      case 4:
        if (v.is_array() && !v.empty() && v.size() < 64) v.push_back(json(v[rng() % v.size()]));
        break;
      case 5:
        if (v.is_number()) v = v.get<double>() * (rng() % 2 ? -1 : 1000);
        else if (v.is_boolean()) v = !v.get<bool>();
        else if (v.is_array() || v.is_object()) v = json::array();
        break;
    }
    // A copy may have moved the values: the list of them is rebuilt before the next round.
    all.assign({&root});
    for (std::size_t i = 0; i < all.size(); ++i)
      if (all[i]->is_structured())
        for (auto& child : *all[i]) all.push_back(&child);
  }
  return root.dump(rng() % 2 ? 2 : -1);
}

struct Reach {
  long inputs = 0, refused = 0, accepted = 0, roundTrips = 0, loaded = 0, evaluated = 0, gpuErrors = 0;
  long pictures = 0;  // nodes' results over all evaluations
  long closed = 0;    // models closed, each after the inputs it opened
};

constexpr const char* kKeep = "project_reader_fuzz_failure.tarvom";

// What the crash handler leaves: the input being tried (a crash leaves no other trace of it), or
// while a model closes, which inputs it had opened.
const std::string* gInput = nullptr;
std::string gClosing;
extern "C" void keepInputAndDie(int sig) {
  if (!gClosing.empty()) {
    [[maybe_unused]] auto n = ::write(2, gClosing.data(), gClosing.size());
  } else if (gInput) {
    const int fd = ::open(kKeep, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd >= 0) {
      [[maybe_unused]] auto n = ::write(fd, gInput->data(), gInput->size());
      ::close(fd);
    }
    const char message[] = "crash: the input is kept in project_reader_fuzz_failure.tarvom\n";
    [[maybe_unused]] auto n = ::write(2, message, sizeof message - 1);
  }
  std::signal(sig, SIG_DFL);
  std::raise(sig);
}
void keepInputsOnCrash() {
  static std::vector<char> altStack(1 << 16);  // a stack overflow needs another stack to report on
  stack_t ss{};
  ss.ss_sp = altStack.data();
  ss.ss_size = altStack.size();
  sigaltstack(&ss, nullptr);
  struct sigaction sa {};
  sa.sa_handler = keepInputAndDie;
  sa.sa_flags = SA_ONSTACK;
  for (int sig : {SIGSEGV, SIGBUS, SIGABRT, SIGFPE, SIGILL}) sigaction(sig, &sa, nullptr);
}

// One input through the codec, then the model and the engine: empty when all holds, else what failed.
std::string exercise(const std::string& input, AppModel& model, ManualScheduler& scheduler, const fs::path& file,
                     Reach& reach) {
  gInput = &input;
  struct Done {
    ~Done() { gInput = nullptr; }
  } done;
  ++reach.inputs;
  std::string error;
  auto decoded = ProjectCodec::decode(input, &error);
  if (!decoded) {
    ++reach.refused;
    return error.empty() ? "refused without a message" : "";
  }
  ++reach.accepted;
  // What is accepted writes back (or refuses non-finite numbers), and from that first write on
  // the file is stable: reading and writing it again gives the same bytes. (The first write may
  // differ from the input: the active mask's stored copy is replaced by the node's own fields.)
  if (auto text = ProjectCodec::encode(*decoded)) {
    auto again = ProjectCodec::decode(*text);
    if (!again) return "its own file refused";
    auto text2 = ProjectCodec::encode(*again);
    if (!text2 || *text2 != *text) return "a second write differs";
    ++reach.roundTrips;
  }

  // The desktop's way in: a file on disk, opened by the model, then evaluated.
  std::ofstream(file, std::ios::binary | std::ios::trunc) << input;
  if (!model.load(file)) {
    // The codec took it: only a file without a world may still be refused.
    const std::string noWorld = "Projet illisible : " + file.filename().string() + " (aucun monde)";
    if (decoded->batches.empty() && model._status == noWorld) return "";
    return "load refused what the codec took: " + model._status;
  }
  ++reach.loaded;
  // About 96 pixels wide, with or without the clip (a world without a picture is 1920 wide).
  model._previewScale = 1;
  model.recomputeComp();
  model._previewScale = std::min(1.0, 96.0 / std::max(1, model._compSize.width));
  scheduler.runAll();  // what opening queued (a first, lean render among it)
  model.loadVideoFrames(0);
  model.performRender(true);
  if (!model.engine->outputs.empty()) ++reach.evaluated;
  for (const auto& [id, picture] : model.engine->outputs) reach.pictures += bool(picture);
  if (model._status.rfind("Erreur GPU", 0) == 0) {
    ++reach.gpuErrors;
    std::fprintf(stderr, "input %ld: %s\n", reach.inputs - 1, model._status.c_str());
    model._status.clear();
  }
  return "";
}

}  // namespace

int main(int argc, char** argv) {
  const bool replay = argc > 1 && std::string(argv[1]) == "--replay";
  const long iterations = argc > 1 && !replay ? std::atol(argv[1]) : 1000000;
  std::mt19937_64 rng(argc > 2 && !replay ? std::strtoull(argv[2], nullptr, 10) : 20261122);
  const double seconds = argc > 3 && !replay ? std::atof(argv[3]) : 0;
  // A headless model as `ombrik render` builds it: settings and data of this run only.
  struct Scratch {
    fs::path dir = fs::temp_directory_path() / ("ombrik-fuzz-" + std::to_string(::getpid()));
    Scratch() { fs::create_directories(dir); }
    ~Scratch() {
      std::error_code ec;
      fs::remove_all(dir, ec);
    }
  } scratch;
  const fs::path file = scratch.dir / "fuzz.tarvom";
  const fs::path clip = writeClip(scratch.dir / "plan.y4m");
  auto scheduler = std::make_shared<ManualScheduler>();
  auto open = [&] {
    return std::make_unique<AppModel>(AppModel::Options{.installed = false, .blankStart = true, .withEngine = true,
                                                        .scheduler = scheduler,
                                                        .defaultsFile = (scratch.dir / "defaults.conf").string(),
                                                        .dataDir = scratch.dir / "data"});
  };
  auto model = open();
  if (!model->engine) return std::fprintf(stderr, "no engine: %s\n", model->_status.c_str()), 1;
  keepInputsOnCrash();
  Reach reach;
  // Closing is part of the path (the engine frees what evaluations kept), so a model is closed
  // and a new one opened every so many inputs, and at the end.
  constexpr long kInputsPerModel = 2000;
  auto close = [&](const std::string& opened) {
    gClosing = "crash while closing a model that opened " + opened + "\n";
    model.reset();
    gClosing.clear();
    ++reach.closed;
  };

  if (replay) {  // inputs kept by earlier runs, one file each
    for (int a = 2; a < argc; ++a) {
      std::ifstream in(argv[a], std::ios::binary);
      const std::string input((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
      const std::string failure = exercise(input, *model, *scheduler, file, reach);
      std::printf("%s: %s\n", argv[a], failure.empty() ? "holds" : failure.c_str());
    }
    close("the inputs replayed");
    return 0;
  }

  std::vector<std::string> seeds;
  for (int i = 0; i < 8; ++i) seeds.push_back(seedProject(rng, clip));
  const auto start = std::chrono::steady_clock::now();
  auto elapsed = [&] { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(); };
  auto since = [&](long first, long last) {  // enough to find them again: a run stops after `last`
    return "inputs " + std::to_string(first) + " to " + std::to_string(last) + " (replay: iterations " +
           std::to_string(last + 1) + ", same seed)";
  };
  long i = 0;
  for (; (iterations <= 0 || i < iterations) && (seconds <= 0 || elapsed() < seconds); ++i) {
    if (i > 0 && i % kInputsPerModel == 0) {
      close(since(i - kInputsPerModel, i - 1));
      model = open();
    }
    const std::string& seed = seeds[rng() % seeds.size()];
    const std::string input = rng() % 2 ? mutate(seed, rng) : mutateTree(seed, rng);
    if (const std::string failure = exercise(input, *model, *scheduler, file, reach); !failure.empty()) {
      std::ofstream(kKeep, std::ios::binary) << input;
      return std::fprintf(stderr, "%s at input %ld (kept in %s)\n", failure.c_str(), i, kKeep), 1;
    }
  }
  close(since(i - 1 - (i - 1) % kInputsPerModel, i - 1));
  const double s = elapsed();
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  std::printf("reach in %.1f s: %ld inputs (%.1f a second), %ld refused by the codec, %ld accepted, %ld round trips, "
              "%ld loaded, %ld evaluated (%ld node pictures), %ld models closed, %ld GPU errors, peak memory %ld MiB; "
              "no crash\n",
              s, reach.inputs, reach.inputs / std::max(s, 1e-9), reach.refused, reach.accepted, reach.roundTrips,
              reach.loaded, reach.evaluated, reach.pictures, reach.closed, reach.gpuErrors, usage.ru_maxrss / 1024);
  return 0;
}
