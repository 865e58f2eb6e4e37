// The one path of AI work: a tool asks at the gate, waits in the line while something else runs,
// and its job goes to the worker on a thread of its own, with progress and the end handed back to
// the main thread. Results are files in the node's folder, found by name when a frame resolves.
#include <algorithm>
#include <nlohmann/json.hpp>
#include <system_error>

#include "ai/ai_cache.h"
#include "ai/magic_job.h"
#include "document/app_model.h"
#include "media/video_source.h"
#include "platform/app_paths.h"
#include "platform/scheduler.h"
#include "tracking/tap_server.h"

namespace ombrik {

namespace fs = std::filesystem;

namespace {
bool fileThere(const fs::path& p) {
  std::error_code ec;
  return fs::exists(p, ec);
}
}  // namespace

fs::path AppModel::magicDir(const Uuid& id) const { return ombrik::magicDir(dataDir_, id); }

std::optional<double> AppModel::aiProgress(const Uuid& id) const {
  if (!ai.aiNodeID || *ai.aiNodeID == id) return _magicProgress;
  return std::nullopt;
}

std::optional<double> AppModel::aiElapsed() const {
  if (!_magicProgress) return std::nullopt;
  return ai.sound.elapsed("magic", scheduler_->now());
}

void AppModel::setPrompt(const Uuid& id, const std::string& text) {
  Node* n = nodeByID(id);
  if (!n || n->prompt == text) return;
  n->prompt = text;
  storedNodes();
}

bool AppModel::aiWaits(const std::string& key, const std::string& label, std::function<void()> run) {
  if (!_trackingProgress && !_magicProgress && !tracking.pins) return false;
  enqueueAI(key, label, std::move(run));
  return true;
}

void AppModel::enqueueAI(const std::string& key, const std::string& label, std::function<void()> run) {
  _status = ai.queue.enqueue(key, label, std::move(run));
}

void AppModel::drainAIQueue() {
  if (_trackingProgress || _magicProgress || tracking.pins || ai.queue.empty()) return;
  if (auto next = ai.queue.take()) later(0, std::move(next->run));
}

void AppModel::cancelAI() {
  if (!_magicProgress) return;
  ai.cancelFlag->store(true);
  ai.queue.clear();
  if (workers_) workers_->shared.stop();  // closing the stream is what ends the job
  _status = kAiCancelledStatus;
}

void AppModel::magicJob(nlohmann::json job, std::function<void(int)> onSeg,
                        std::function<void(const std::string&)> onStatus, AiDone done) {
  ai.aiNodeID = aiNodeOfJob(job);
  ai.cancelFlag->store(false);
  ai.sound.change("magic", false, true, scheduler_->now(), false);
  if (aiThread_.joinable()) aiThread_.join();  // the last job's thread has handed its end over
  std::weak_ptr<int> alive = alive_;
  auto onMain = [this, alive](std::function<void()> work) {
    scheduler_->postFromThread([alive, work = std::move(work)] {
      if (alive.lock()) work();
    });
  };
  TapServer* server = &workers().shared;
  const std::optional<fs::path> python = workerPython(AppPaths::shared());
  auto flag = ai.cancelFlag;
  aiThread_ = std::thread([this, server, python, flag, onMain, job = std::move(job), onSeg = std::move(onSeg),
                           onStatus = std::move(onStatus), done = std::move(done)] {
    MagicJobHooks hooks;
    hooks.onSeg = [&](int n) {
      if (onSeg) onMain([onSeg, n] { onSeg(n); });
    };
    hooks.onStatus = [&](const std::string& text) {
      if (onStatus) onMain([onStatus, text] { onStatus(text); });
    };
    const std::optional<std::string> error = ombrik::magicJob(*server, python, job, hooks, *flag);
    onMain([this, done, error, flag] {
      done(error);
      if (flag->load()) _status = kAiCancelledStatus;  // a cancel isn't the tool's failure
      // Whatever the tool did, the job is over: the line may move on.
      _magicProgress.reset();
      ai.videoJobRunning = false;
      ai.aiNodeID.reset();
      if (ai.sound.change("magic", true, false, scheduler_->now(), flag->load()) && playTaskSound) playTaskSound();
      invalidatePlayCache();
      requestRender();
      drainAIQueue();
    });
  });
}

std::optional<AppModel::ShotJob> AppModel::shotFor(const Uuid& id, const char* missing) {
  VideoSource* video = upstreamVideo(id);
  if (!video) {
    _status = missing;
    return std::nullopt;
  }
  ShotJob shot{video, magicDir(id), batchFrames(*video)};
  std::error_code ec;
  fs::create_directories(shot.dir, ec);
  return shot;
}

void AppModel::runWholeShot(nlohmann::json job, int frames, const char* preparing, AiDone done) {
  if (_isPlaying) stopPlayback();
  _magicProgress = 0.0;
  ai.videoJobRunning = true;
  _status = preparing;
  auto onSeg = [this, frames](int count) {
    _magicProgress = std::clamp(double(count) / std::max(frames, 1), 0.0, 1.0);
    if (count % 2 == 0) {  // the frames written show as they come, without re-evaluating at every one
      invalidatePlayCache();
      requestRender();
    }
  };
  magicJob(std::move(job), onSeg, [this](const std::string& s) { _status = s; }, std::move(done));
}

void AppModel::endAI() {
  ai.queue.clear();
  ai.cancelFlag->store(true);
  if (workers_) workers_->shared.stop();
  if (aiThread_.joinable()) aiThread_.join();
}

void AppModel::resolveAIResult(Node& r, int frame) const {
  if (!r.kind) return;
  const std::string& kind = r.kind->id;
  if (kind == "retime") return resolveRetime(r, frame);
  const bool matte = kind == "greenkeyai" || kind == "magicmask" || kind == "bodymask" || kind == "hairmatte" ||
                     kind == "objectmask" || (kind == "mask" && r.p("aimode") > 0.5);
  if (!matte && kind != "denoise" && kind != "freeze" && kind != "mux") return;  // most nodes read no file
  auto found = [&](const fs::path& file) {
    if (fileThere(file)) r.magicFile = file.string();
  };
  const fs::path dir = magicDir(r.id);
  if (matte) {
    const bool frozen = kind == "objectmask" && r.p("freeze") > 0.5;
    r.magicCur = frozen ? r.magicFrame : frame;
    found(frameFile(dir, r.magicCur, "png"));
    r.magicDirPath = dir.string();
  } else if (kind == "denoise") {
    found(frameFile(dir, frame, "dn"));
    if (!r.magicFile) found(frameFile(dir, frame, "png"));
  } else if (kind == "freeze") {
    found(dir / "freeze.tif");
  } else {
    found(frameFile(dir, frame, "tif"));  // a Relais checkpoint
  }
}

}  // namespace ombrik
