// A mask tracking run under way: the tracker on a thread of its own, its reports batched back to
// the node on the main thread, and the five ways a run ends.
#include <chrono>

#include "document/app_model.h"
#include "platform/app_paths.h"
#include "platform/scheduler.h"
#include "platform/string_catalogue.h"
#include "tracking/tap_server.h"

namespace ombrik {

namespace {

double seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

std::vector<TrackPoint> pointsOf(const nlohmann::json& pts) {
  std::vector<TrackPoint> out;
  for (const auto& p : pts)
    if (p.is_array() && p.size() >= 2 && p[0].is_number() && p[1].is_number())
      out.push_back({{p[0].get<double>(), p[1].get<double>()}, p.size() < 3 || !p[2].is_number() || p[2].get<double>() > 0.5});
  return out;
}

std::vector<Point> seedsOf(const nlohmann::json& seeds) {
  std::vector<Point> out;
  for (const auto& p : seeds)
    if (p.is_array() && p.size() >= 2 && p[0].is_number() && p[1].is_number()) out.push_back({p[0].get<double>(), p[1].get<double>()});
  return out;
}

std::string frameText(int frame) { return std::to_string(frame + 1); }

}  // namespace

// The node the run writes into: the live one, or the one in its world when another is open.
Node* AppModel::trackTarget(const Uuid& nodeID) {
  if (Node* n = nodeByID(nodeID)) return n;
  for (auto& b : _batches)
    for (auto& n : b.nodes)
      if (n.id == nodeID) return &n;
  return nullptr;
}

void AppModel::startTrackRun(std::shared_ptr<MaskTrackRun> run, const Uuid& nodeID, nlohmann::json job) {
  std::weak_ptr<int> alive = alive_;
  // Work for the main thread, dropped when the model is gone by then.
  auto onMain = [this, alive](std::function<void()> work) {
    scheduler_->postFromThread([alive, work = std::move(work)] {
      if (alive.lock()) work();
    });
  };
  const bool fast = run->setup().fast;
  std::shared_ptr<FastRun> fastRun;
  if (fast) fastRun = std::make_shared<FastRun>(workerSetup(AppPaths::shared(), interfaceLanguage(), *defaults_));
  tracking.fastRun = fastRun;
  TapServer* server = &workers().shared;
  const std::optional<std::filesystem::path> python = workerPython(AppPaths::shared());
  tracking.thread = std::thread([this, run, nodeID, job = std::move(job), fastRun, server, python, onMain] {
    JobResult result;
    if (!python) {
      result = {JobResult::End::error, "Python 3 introuvable : le tracker ne peut pas démarrer."};
    } else {
      bool weakNext = false;
      auto onLine = [&](const nlohmann::json& m) {
        if (!m.is_object()) return;
        if (auto it = m.find("seeds"); it != m.end()) return run->setSeeds(seedsOf(*it));
        if (m.contains("weak")) {
          weakNext = true;
          return;
        }
        if (auto it = m.find("status"); it != m.end() && it->is_string()) {
          onMain([this, run, text = it->get<std::string>()] {
            if (tracking.run == run) _status = text;
          });
          return;
        }
        auto f = m.find("f"), pts = m.find("pts");
        if (f == m.end() || pts == m.end() || !f->is_number_integer()) return;
        const MaskTrackRun::Step step = run->report(f->get<int>(), pointsOf(*pts), weakNext, seconds());
        weakNext = false;
        if (step.status)
          onMain([this, run, text = *step.status] {
            if (tracking.run == run) _status = text;
          });
        if (step.stop) {  // the limit passed or the mask lost: not a stop by the user
          run->cancelled = true;
          if (fastRun) fastRun->cancel();
          else server->stop();
        }
        if (run->batchReady()) onMain([this, run, nodeID] { pushTrack(*run, nodeID, false); });
      };
      if (fastRun) {
        result = fastRun->run(*python, job, onLine);
      } else if (auto error = server->ensureRunning(*python, [this, onMain, run](const std::string& text) {
                   onMain([this, run, text] {
                     if (tracking.run == run) _status = text;
                   });
                 })) {
        result = {JobResult::End::error, *error};
      } else {
        result = server->runJob(job, onLine);
      }
    }
    onMain([this, run, nodeID, result] { finishTrackRun(run, nodeID, result); });
  });
}

void AppModel::pushTrack(MaskTrackRun& run, const Uuid& nodeID, bool last) {
  TrackBatch batch = run.take();
  Node* node = trackTarget(nodeID);
  if (node && !batch.empty()) {
    for (auto& [f, k] : batch.keys) node->track[f] = k;
    for (auto& [f, h] : batch.planarH) node->planarH[f] = std::move(h);
    if (nodeByID(nodeID))
      for (auto& [f, d] : batch.dots) roto.trackDots[f] = std::move(d);
    if (nodeByID(nodeID)) storedNodes();
  }
  if (!batch.lastFrame) return;
  if (_trackingProgress) _trackingProgress = run.progress(*batch.lastFrame);
  const double now = scheduler_->now();
  if (nodeByID(nodeID) && (last || now - tracking.lastSeek > (run.setup().fast ? 0.08 : 1.0))) {
    tracking.lastSeek = now;
    seekFrame(*batch.lastFrame);
  }
}

void AppModel::finishTrackRun(std::shared_ptr<MaskTrackRun> run, const Uuid& nodeID, const JobResult& result) {
  if (tracking.run != run) return;
  pushTrack(*run, nodeID, true);
  _trackingProgress.reset();
  tracking.run.reset();
  tracking.fastRun.reset();
  requestRender();
  std::function<void(bool)> hook = std::exchange(tracking.finishHook, nullptr);
  // A stop of our own (limit passed, mask lost) or by the user ends the stream as cancelled.
  const bool error = result.end == JobResult::End::error && !run->cancelled;
  const bool userStop = run->cancelled && !run->lostAt && !run->limitReached;
  const int at = _currentFrame;
  if (error) {
    _status = "Tracking impossible : " + result.text;
  } else if (run->lostAt) {
    tracking.weak[nodeID] = *run->lostAt;
    seekFrame(*run->lostAt);
    _status = "Zone perdue à l'image " + frameText(*run->lostAt) +
              " : placez le masque à la main sur ces images (clés d'offset), puis « Reprendre le track ici » après la zone difficile.";
  } else if (run->weakAt && !run->limitReached) {
    tracking.weak[nodeID] = *run->weakAt;
    seekFrame(*run->weakAt);
    _status = "Track faible à partir de l'image " + frameText(*run->weakAt) +
              " (pas assez de détails, position tenue). Placez le masque à la main sur cette zone (clés d'offset), puis « Reprendre le track ici » après la zone difficile.";
  } else if (userStop) {
    _status = "Tracking arrêté à l'image " + frameText(at);
  } else {
    const Node* node = trackTarget(nodeID);
    _status = "Tracking terminé (" + std::to_string(node ? node->track.size() : 0) + " images)";
    roto.trackDots.clear();
  }
  historyChanged();  // the whole run is one step, now that it has ended
  tracking.stoppedByUser = userStop;
  if (ai.sound.change("track", true, false, scheduler_->now(), userStop) && playTaskSound) playTaskSound();
  if (hook) hook(!error && !run->lostAt);
  if (tracking.backNote && tracking.backNote->first == nodeID) {
    _status = "Avant : " + tracking.backNote->second + " · Arrière : " + _status;
    tracking.backNote.reset();
  }
  if (tracking.thenBack && tracking.thenBack->first == nodeID) {
    const int from = tracking.thenBack->second;
    tracking.thenBack.reset();
    if (!error && !userStop) {
      tracking.backNote = {nodeID, _status};
      seekFrame(from);
      later(0, [this, nodeID] { trackMask(nodeID, false); });
    }
  }
  drainAIQueue();  // AI jobs wait for the tracker
}

void AppModel::stopTracking() {
  if (!tracking.run) return;
  tracking.run->cancelled = true;
  if (tracking.fastRun) tracking.fastRun->cancel();
  else if (workers_) workers_->shared.stop();
}

void AppModel::endTracking() {  // at exit: nothing may outlive the model
  stopTracking();
  if (tracking.thread.joinable()) tracking.thread.join();
  if (workers_) workers_->stop();
}

}  // namespace ombrik
