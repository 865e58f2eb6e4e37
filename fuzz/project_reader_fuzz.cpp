// Mutation fuzzing of the project reader: random damage to valid project texts (flipped bytes,
// cut and repeated spans, swapped JSON tokens, huge and non-finite numbers, deep nesting),
// each fed to the reader. The reader must never crash or hang, and whatever it accepts must
// write back and read again to an equal world.
//
//   build/fuzz/project_reader_fuzz [iterations] [seed]     (default 1000000)
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "document/project_file.h"

using namespace ombrik;

namespace {

std::string seedProject(std::mt19937_64& rng) {
  ProjectFile f;
  f.media = {{Uuid::generate(), "plan.mov", "/films/plan.mov"}};
  Batch b;
  b.id = Uuid::generate();
  b.name = "Monde";
  for (const char* kind : {"media", "mask", "color", "comp", "tracker", "meshwarp", "motionvec", "bodymask"}) {
    Node n(*NodeKind::find(kind));
    n.track[int(rng() % 50)] = {1, 2, 3, 4, 5};
    n.shape = {{{0.1, 0.2}, {0.3, 0.4}, {0.5, 0.6}}};
    n.magicPoints = {{{0.5, 0.5}, true}};
    Keyframe k;
    k.f = std::int64_t(rng() % 100);
    k.v = 0.5;
    n.anim["x"] = {k};
    if (std::string(kind) == "tracker") {
      TrackerPt t;
      t.id = Uuid::generate();
      t.path[3] = {0.1, 0.2};
      n.trackers = {t};
    }
    if (std::string(kind) == "mask") n.masks = {GMask{}, GMask{}};
    if (std::string(kind) == "meshwarp") n.meshTrack[2] = {{0.1, 0.2}, {0.3, 0.4}};
    b.positions[n.id] = {1, 2};
    if (!b.nodes.empty()) b.edges.push_back({Uuid::generate(), b.nodes.back().id, n.id, int(rng() % 6), int(rng() % 3)});
    b.nodes.push_back(n);
  }
  b.openGroups = {OpenGroup{Uuid::generate(), "G", {b.nodes[0].id}, {}, "", ""}};
  f.batches = {b};
  f.current = b.id;
  f.timelinesJSON = R"([{"id":"T","layers":[1,2,3]}])";
  return *ProjectCodec::encode(f);
}

const char* const kTokens[] = {"null", "true", "false", "0", "-1", "1e308", "-1e308", "1e999", "NaN", "\"\"", "[]",
                               "{}", "[[[[", "]]]]", "\"abc\"", "2147483648", "-9223372036854775809", "0.5",
                               "\"00000000-0000-0000-0000-000000000000\"", "\"\xC3\x28\"", "\"\\u0000\"", ","};

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

}  // namespace

int main(int argc, char** argv) {
  const long iterations = argc > 1 ? std::atol(argv[1]) : 1000000;
  std::mt19937_64 rng(argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 20261122);
  std::vector<std::string> seeds;
  for (int i = 0; i < 8; ++i) seeds.push_back(seedProject(rng));
  long accepted = 0, roundTrips = 0;
  const auto start = std::chrono::steady_clock::now();
  for (long i = 0; i < iterations; ++i) {
    const std::string input = mutate(seeds[rng() % seeds.size()], rng);
    std::string error;
    auto file = ProjectCodec::decode(input, &error);
    if (!file) {
      if (error.empty()) return std::fprintf(stderr, "refused without a message at %ld\n", i), 1;
      continue;
    }
    ++accepted;
    // What is accepted writes back (or refuses non-finite numbers), and from that first write on
    // the file is stable: reading and writing it again gives the same bytes. (The first write may
    // differ from the input: the active mask's stored copy is replaced by the node's own fields.)
    auto text = ProjectCodec::encode(*file);
    if (!text) continue;
    auto again = ProjectCodec::decode(*text);
    if (!again) return std::fprintf(stderr, "its own file refused at %ld\n", i), 1;
    auto text2 = ProjectCodec::encode(*again);
    if (!text2 || *text2 != *text) return std::fprintf(stderr, "a second write differs at %ld\n", i), 1;
    ++roundTrips;
  }
  const double s = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::printf("%ld inputs in %.1f s: %ld accepted, %ld round trips checked, no crash\n", iterations, s, accepted,
              roundTrips);
  return 0;
}
