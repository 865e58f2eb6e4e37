// Renders of frames to files: the world's graph at full size, frame by frame, into a movie or a
// numbered sequence, never over an earlier render; the export of one frame; the render folder.
#include <cmath>
#include <system_error>

#include "document/app_model.h"
#include "document/frame_run.h"
#include "editorial/render_naming.h"
#include "engine/engine.h"
#include "media/forward_readers.h"
#include "media/movie_writer.h"
#include "media/video_source.h"
#include "platform/dialogs.h"
#include "platform/scheduler.h"

namespace ombrik {

namespace fs = std::filesystem;


std::optional<Uuid> AppModel::outputNode() const {
  for (const Node& n : _nodes)
    if (n.kind->id == "output") return n.id;
  return std::nullopt;
}

bool AppModel::startFrameRun(std::shared_ptr<FrameRun> run) {
  if (!engine) return false;
  run->rememberFrame = _currentFrame;
  VideoSource* video = activeVideo();
  run->frames = std::max(1, video ? batchFrames(*video) : _frameCount);
  run->fps = std::max(1.0, video ? video->fps() : _fps);
  run->nodes = _nodes;
  run->edges = _edges;
  run->readers = std::make_unique<ForwardReaders>(true);
  rendering = true;
  delivery.renderCancel = false;
  delivery.renderProgress = 0.0;
  frameRun_ = std::move(run);
  later(0, [this] { frameStep(0); });
  return true;
}

void AppModel::frameStep(int i) {
  FrameRun* run = frameRun_.get();
  if (!run) return;
  if (delivery.renderCancel) return finishFrameRun("annulé");
  if (i >= run->frames) return finishFrameRun(std::nullopt);
  feedClipFrames(*run->readers, i);  // a reader past its clip's end keeps its last picture
  _currentFrame = i;
  recomputeComp();
  engine->leanEval = false;
  engine->alwaysEval.clear();
  engine->viewAlphaOf.reset();
  std::vector<Node> nodes;
  nodes.reserve(run->nodes.size());
  for (const Node& n : run->nodes) nodes.push_back(resolved(n));
  engine->evaluate(nodes, run->edges, float(i / run->fps));
  if (auto error = run->write(i)) return finishFrameRun(error);
  delivery.renderProgress = double(i + 1) / run->frames;
  later(0, [this, i] { frameStep(i + 1); });
}

void AppModel::finishFrameRun(std::optional<std::string> error) {
  std::shared_ptr<FrameRun> run = std::move(frameRun_);
  if (!run) return;
  run->readers.reset();
  run->close(error);
  rendering = false;
  delivery.forceFullRes = false;
  delivery.renderProgress.reset();
  seekFrame(run->rememberFrame);
  requestRender();
  _status = run->ended(error);
  if (auto done = std::move(delivery.onRenderFinished)) {
    delivery.onRenderFinished = nullptr;
    done(error);
  }
}

void AppModel::renderSequence(const Uuid& nodeID) {
  if (rendering || !nodeByID(nodeID)) return;
  stopPlayback();
  if (nodeByID(nodeID)->path.empty() && !chooseRenderFolder(nodeID)) return;
  const Node& out = *nodeByID(nodeID);
  if (std::none_of(_edges.begin(), _edges.end(), [&](const Edge& e) { return e.to == nodeID && e.port == 0; })) {
    _status = "Reliez votre comp à l'entrée du node Sortie.";
    return;
  }
  const fs::path folder = out.path;
  std::error_code ec;
  fs::create_directories(folder, ec);
  if (ec || !fs::is_directory(folder)) {
    _status = "Dossier de rendu inaccessible : " + (ec ? ec.message() : std::string("ce n'est pas un dossier"));
    return;
  }
  removeStaleParts(folder);  // what a render killed here before left behind
  if (!engine) return;
  delivery.forceFullRes = true;
  recomputeComp();
  const int W = _compSize.width, H = _compSize.height;
  if (W < 1 || H < 1) {
    delivery.forceFullRes = false;
    return;
  }
  const RenderFormat format = RenderFormat::fromIndex(int(std::lround(out.p("format"))));
  const Batch* world = currentBatch();
  const std::string base = renderBaseName(world ? world->name : "");
  auto run = std::make_shared<FrameRun>();
  VideoSource* video = activeVideo();
  const double fps = std::max(1.0, video ? video->fps() : _fps);

  fs::path target;
  std::shared_ptr<MovieWriter> writer;
  if (format.movie) {
    target = versionedPath(folder, base, format.extension);
    std::string error;
    MovieSpec spec{*format.movie, W, H, fps, int(std::lround(out.p("crf")))};
    writer = MovieWriter::open(target, spec, &error);
    if (!writer) {
      delivery.forceFullRes = false;
      _status = "Impossible de créer le .mov : " + error;
      return;
    }
  } else {
    target = versionedPath(folder, base, "");
    if (!fs::create_directories(target, ec) || ec) {
      delivery.forceFullRes = false;
      _status = "Dossier de rendu inaccessible : " + (ec ? ec.message() : target.string());
      return;
    }
  }
  const Uuid outID = nodeID;
  run->write = [this, outID, writer, target, ext = format.extension](int i) -> std::optional<std::string> {
    auto it = engine->outputs.find(outID);
    if (it == engine->outputs.end()) return "le node Sortie ne reçoit pas d'image";
    const std::shared_ptr<gpu::Texture> picture = deliveredPicture(it->second);
    std::string error;
    if (writer) {
      const std::vector<float> pixels = engine->readPixels(picture);
      if (pixels.empty() || !writer->append(pixels.data(), &error)) return error.empty() ? "image illisible" : error;
    } else if (!engine->export_(picture, sequenceFrame(target, i, ext), &error)) {
      return error;
    }
    return std::nullopt;
  };
  run->close = [writer](std::optional<std::string>& error) {
    if (!writer) return;  // a stopped sequence keeps the frames it wrote
    if (error) {
      writer->cancel();
      return;
    }
    std::string why;
    if (!writer->finish(&why)) error = why;
  };
  run->ended = [this, target, movie = bool(writer), ext = format.extension](const std::optional<std::string>& error) {
    if (error) {
      // Say what is left: a stopped movie leaves no file, a stopped sequence the frames it made.
      int kept = 0;
      std::error_code ec;
      for (fs::directory_iterator it(target, ec), end; !movie && !ec && it != end; it.increment(ec)) ++kept;
      return "Rendu interrompu : " + *error +
             (movie ? std::string(" · aucun film écrit")
                    : " · " + std::to_string(kept) + " image" + (kept > 1 ? "s" : "") + " gardée" + (kept > 1 ? "s" : "") +
                          " dans " + target.filename().string() + "/");
    }
    delivery.lastRender = target;
    return "Rendu terminé : " + target.filename().string();
  };
  if (!startFrameRun(run)) return;
  _status = "Rendu en cours : " + target.filename().string();
}

std::optional<std::string> AppModel::writeMatteMovie(const fs::path& dir, int frames, double fps, int width, int height,
                                                     const fs::path& to) {
  return ombrik::writeMatteMovie(dir, frames, fps, width, height, to);
}

bool AppModel::chooseRenderFolder(const Uuid& nodeID) {
  const Node* n = nodeByID(nodeID);
  if (!n || !dialogs_) return false;
  OpenPanel panel;
  panel.title = "Dossier de rendu";
  panel.directory = n->path.empty() ? queueFolder() : fs::path(n->path);
  auto chosen = dialogs_->folder(panel);
  if (!chosen) return false;
  setRenderFolder(nodeID, *chosen);
  return true;
}

void AppModel::setRenderFolder(const Uuid& nodeID, const fs::path& url) {
  Node* n = nodeByID(nodeID);
  if (!n) return;
  n->path = url.string();
  storedNodes();
  _status = "Dossier de rendu : " + url.filename().string();
}

void AppModel::exportPanel() {
  const std::optional<Uuid> out = outputNode();
  if (!engine) return;
  delivery.forceFullRes = true;
  recomputeComp();
  engine->leanEval = false;
  std::vector<Node> nodes;
  for (const Node& n : _nodes) nodes.push_back(resolved(n));
  engine->evaluate(nodes, _edges, float(_currentFrame / std::max(1.0, _fps)));
  delivery.forceFullRes = false;
  auto it = out ? engine->outputs.find(*out) : engine->outputs.end();
  if (it == engine->outputs.end()) {
    _status = "Rien à exporter : reliez un node au node Sortie.";
    requestRender();
    return;
  }
  std::shared_ptr<gpu::Texture> picture = it->second;
  SavePanel panel;
  panel.title = "Exporter l'image";
  panel.proposedName = "tarvane_render.tif";
  panel.types = {"tif", "png"};
  auto chosen = dialogs_ ? dialogs_->save(panel) : std::nullopt;
  if (chosen) {
    std::string error;
    if (engine->export_(picture, *chosen, &error)) _status = "Image exportée : " + chosen->filename().string();
    else _status = "Export impossible : " + error;
  }
  requestRender();  // back to the preview size
}

}  // namespace ombrik
