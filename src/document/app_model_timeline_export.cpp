// The film of a timeline: every frame at the timeline's own rate into a hidden ProRes 422 HQ movie
// beside the destination, one frame a turn of the main loop, then joined with the sound of the
// film it was cut from. A stopped or failed export leaves the destination as it was.
#include <algorithm>

#include "document/app_model.h"
#include "document/play_state.h"
#include "engine/engine.h"
#include "media/movie_mux.h"
#include "media/movie_writer.h"
#include "platform/dialogs.h"

namespace ombrik {

namespace fs = std::filesystem;

struct AppModel::TimelineExport {
  Uuid id;
  int frames = 1;
  fs::path temp, destination;
  std::optional<fs::path> film;
  std::unique_ptr<MovieWriter> writer;
};

void AppModel::exportTimelineMovie(const Uuid& id) {
  const Timeline* t = tl.find(id);
  if (rendering || !t || !dialogs_) return;
  std::string name = t->name;
  if (const auto at = name.find("Film · "); at != std::string::npos) name.erase(at, std::string("Film · ").size());
  SavePanel panel;
  panel.title = "Exporter le film";
  panel.proposedName = name + "_conform.mov";
  panel.types = {"mov"};
  if (auto to = dialogs_->save(panel)) exportTimelineMovie(id, *to);
}

bool AppModel::exportTimelineMovie(const Uuid& id, const fs::path& to) {
  if (rendering || !engine || !tl.find(id)) return false;
  if (_isPlaying) stopPlayback();
  if (tl.currentTimelineID != id || tl.workspace != Workspace::timeline) openTimeline(id);
  const Timeline& t = *tl.find(id);
  delivery.forceFullRes = true;
  recomputeComp();  // the timeline's own size, every pixel
  auto run = std::make_shared<TimelineExport>();
  run->id = id;
  run->frames = t.duration();
  run->destination = to;
  run->temp = to.parent_path() / (".ombrik_video_" + Uuid::generate().toString().substr(0, 6) + ".mov");
  if (t.filmPath) run->film = fs::path(*t.filmPath);
  std::string error;
  MovieSpec spec{MovieCodec::prores422hq, engine->compW, engine->compH, t.fps, 18, true};
  run->writer = MovieWriter::open(run->temp, spec, &error);
  if (!run->writer) {
    delivery.forceFullRes = false;
    _status = "Export impossible : " + error;
    return false;
  }
  rendering = true;
  // No scrub job or playback frame uses the engine between two frames of the export.
  if (!play) play = std::make_unique<PlayState>();
  play->working = true;
  delivery.renderCancel = false;
  delivery.renderProgress = 0.0;
  _status = "Export du film : préparation…";
  tlExport_ = std::move(run);
  later(0, [this] { timelineExportStep(0); });
  return true;
}

void AppModel::timelineExportStep(int i) {
  TimelineExport* run = tlExport_.get();
  if (!run) return;
  if (delivery.renderCancel) return finishTimelineExport("annulé");
  if (i >= run->frames) return finishTimelineExport(std::nullopt);
  if (tl.currentTimelineID != run->id) return finishTimelineExport("timeline introuvable");
  auto job = timelineJob(i);
  if (!job) return finishTimelineExport("timeline introuvable");
  const auto picture = job->render(*engine, timelineReader());
  const std::vector<float> pixels = picture ? engine->readPixels(picture) : std::vector<float>{};
  if (pixels.empty()) return finishTimelineExport("mémoire vidéo indisponible");
  std::string error;
  if (!run->writer->append(pixels.data(), &error)) return finishTimelineExport(error.empty() ? "écriture impossible" : error);
  delivery.renderProgress = double(i + 1) / run->frames;
  _status = "Export du film : image " + std::to_string(i + 1) + " / " + std::to_string(run->frames);
  later(0, [this, i] { timelineExportStep(i + 1); });
}

void AppModel::finishTimelineExport(std::optional<std::string> error) {
  std::shared_ptr<TimelineExport> run = std::move(tlExport_);
  if (!run) return;
  if (!error) {
    std::string why;
    if (!run->writer->finish(&why)) error = why;
    else error = muxAudio(run->temp, run->film, run->destination);
  } else {
    run->writer->cancel();
  }
  std::error_code ec;
  fs::remove(run->temp, ec);
  rendering = false;
  if (play) play->working = false;
  delivery.renderProgress.reset();
  delivery.forceFullRes = false;
  recomputeComp();
  invalidatePlayCache();
  requestRender();
  if (error) {
    _status = "Export interrompu : " + *error;
  } else {
    _status = "Film exporté : " + run->destination.filename().string() + " (" + std::to_string(run->frames) +
              " images, timing d'origine).";
    delivery.lastRender = run->destination;
  }
  runQueue();
}

}  // namespace ombrik
