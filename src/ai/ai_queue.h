#pragma once
// The waiting line of AI jobs: only one heavy job runs at a time, the others wait here under a
// stable key (a prefix and the node's id), so that pressing a tool's button twice neither doubles
// nor reorders its job.
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "graph/uuid.h"

namespace ombrik {

// Key prefixes, one per kind of job; the node's id follows.
namespace aiprefix {
inline constexpr std::string_view bodyFrame = "bodyf-";   // one frame of Body Matte or Hair Matte
inline constexpr std::string_view bodyVideo = "bodyv-";   // the whole shot of the same
inline constexpr std::string_view object = "obj-";        // Objet IA search
inline constexpr std::string_view motionVec = "mv-";      // motion vectors
inline constexpr std::string_view motionAnalysis = "mva-";
inline constexpr std::string_view denoiseFrame = "dnf-";  // followed by the id, "-" and the frame
inline constexpr std::string_view denoiseVideo = "dnv-";
inline constexpr std::string_view greenFrame = "gkf-";
inline constexpr std::string_view greenVideo = "gkv-";
inline constexpr std::string_view retime = "retime-";
inline constexpr std::string_view face = "face-";
inline constexpr std::string_view shots = "shots-";
}  // namespace aiprefix

std::string aiKey(std::string_view prefix, const Uuid& id);
// "dnf-<id>-<frame>": each frame of a Denoise is a job of its own.
std::string denoiseFrameKey(const Uuid& id, int frame);

// The status shown for a job put in the line: label + " en attente : …".
std::string aiWaitingText(const std::string& label);

class AiQueue {
public:
  struct Entry {
    std::string key;
    std::function<void()> run;
  };

  // Appends the job when no entry holds `key`; in either case gives the status to show.
  std::string enqueue(const std::string& key, const std::string& label, std::function<void()> run);
  // The oldest entry, taken out of the line; none when the line is empty.
  std::optional<Entry> take();
  void clear() { entries_.clear(); }

  bool contains(const std::string& key) const;
  bool empty() const { return entries_.empty(); }
  std::size_t size() const { return entries_.size(); }
  const std::deque<Entry>& entries() const { return entries_; }

private:
  std::deque<Entry> entries_;
};

}  // namespace ombrik
