#include "app/render_command.h"

#include <algorithm>
#include <atomic>
#include <functional>
#include <csignal>
#include <charconv>
#include <filesystem>
#include <memory>
#include <optional>
#include <ostream>
#include <unistd.h>

#include "document/app_model.h"
#include "document/media_trouble.h"
#include "editorial/render_naming.h"
#include "engine/engine.h"
#include "media/movie_writer.h"
#include "media/video_source.h"
#include "platform/scheduler.h"
#include "platform/string_catalogue.h"

namespace ombrik {

namespace fs = std::filesystem;

namespace {

// Ctrl-C or a kill asks the render to stop after the frame in progress, so that nothing
// half-written stays; a second one stops at once.
std::atomic<bool> gStop{false};
extern "C" void askToStop(int sig) {
  if (gStop.exchange(true)) {
    std::signal(sig, SIG_DFL);
    std::raise(sig);
  }
}

std::optional<int> toInt(const std::string& s) {
  int v = 0;
  auto [p, ec] = std::from_chars(s.data(), s.data() + s.size(), v);
  if (ec != std::errc() || p != s.data() + s.size()) return std::nullopt;
  return v;
}

// The one "%d" or "%0Nd" of a pattern: its position, its length and the width it asks for.
struct FrameField {
  std::size_t at = std::string::npos, length = 0;
  int width = 0;
};

FrameField frameField(const std::string& pattern) {
  FrameField f;
  for (std::size_t i = 0; i + 1 < pattern.size(); ++i) {
    if (pattern[i] != '%') continue;
    std::size_t j = i + 1;
    int width = 0;
    if (j < pattern.size() && pattern[j] != '0' && pattern[j] != 'd') continue;  // only %d and %0Nd
    while (j < pattern.size() && std::isdigit(static_cast<unsigned char>(pattern[j]))) width = width * 10 + (pattern[j++] - '0');
    if (j < pattern.size() && pattern[j] == 'd' && width <= 12) {
      f.at = i, f.length = j + 1 - i, f.width = width;
      return f;
    }
  }
  return f;
}

// An output with no picture is blamed on a media it can't read before the wiring.
std::string noPicture(const AppModel& model, const Uuid& outputID, int frame) {
  return "la Sortie ne donne pas d'image à l'image " + std::to_string(frame) + " : " +
         whyNoPicture(model._nodes, model._edges, outputID, model.mediaTroubles);
}

// The picture delivered at a frame (from 0), or nothing with the reason.
using PictureAt = std::function<std::shared_ptr<gpu::Texture>(int frame, std::string* why)>;

// Frames first..last (from 1) into one movie, encoded as they are evaluated. A timeline keeps
// its own time scale.
bool renderMovie(AppModel& model, const PictureAt& pictureAt, const std::string& out, MovieCodec codec, double fps,
                 bool exactTimeScale, int first, int last, std::ostream& err) {
  std::string error;
  model.recomputeComp();
  const MovieSpec spec{codec, model.engine->compW, model.engine->compH, fps, 18, exactTimeScale};
  auto writer = MovieWriter::open(out, spec, &error);
  if (!writer) {
    err << "ombrik render : " << error << std::endl;
    return false;
  }
  for (int frame = first; frame <= last; ++frame) {
    if (gStop) {
      err << "ombrik render : interrompu à l'image " << frame << " · aucun film écrit" << std::endl;
      return false;  // the writer goes without a trace
    }
    const auto picture = pictureAt(frame - 1, &error);
    if (!picture) {
      err << "ombrik render : " << error << std::endl;
      return false;  // the writer goes without a trace
    }
    const std::vector<float> pixels = model.engine->readPixels(picture);
    if (pixels.empty() || !writer->append(pixels.data(), &error)) {
      err << "ombrik render : " << (error.empty() ? std::string("image illisible") : error) << std::endl;
      return false;
    }
    err << "image " << frame << " (" << (frame - first + 1) << "/" << (last - first + 1) << ")" << std::endl;
  }
  if (!writer->finish(&error)) {
    err << "ombrik render : " << error << std::endl;
    return false;
  }
  err << "film écrit : " << out << std::endl;
  return true;
}

constexpr const char* kUsage =
    "usage : ombrik render PROJET.tarvom [--world NOM | --timeline NOM] [--frames A-B] [--scale S] [--codec C] --out SORTIE\n"
    "  SORTIE : un film (.mov ProRes 4444 ou, avec --codec, prores422hq ou h264 ; .mp4 H.264), ou un motif\n"
    "  d'images PNG, TIFF ou EXR avec %d ou %05d. --frames compte depuis 1, comme la timeline ; les fichiers\n"
    "  sont numérotés depuis 0, comme les séquences rendues par l'application (image 1 → 00000).\n"
    "  Un film prend tout le monde (ou toute la timeline) quand --frames manque.";

}  // namespace

std::string RenderCommand::fileFor(const std::string& pattern, int frame) {
  const FrameField f = frameField(pattern);
  if (f.at == std::string::npos) return pattern;
  std::string digits = std::to_string(frame);
  if (int(digits.size()) < f.width) digits.insert(0, f.width - digits.size(), '0');
  return pattern.substr(0, f.at) + digits + pattern.substr(f.at + f.length);
}

int RenderCommand::run(const std::vector<std::string>& args, std::ostream& err) {
  auto fail = [&](const std::string& message) {
    err << "ombrik render : " << message << std::endl;
    return 1;
  };
  std::string project, world, timeline, out;
  int first = 1, last = 1;
  bool rangeGiven = false;
  std::optional<MovieCodec> codecHint;
  double scale = 1;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    auto value = [&]() -> std::optional<std::string> {
      if (i + 1 >= args.size()) return std::nullopt;
      return args[++i];
    };
    if (a == "--help" || a == "-h") {
      err << tr(kUsage) << std::endl;
      return 0;
    } else if (a == "--world") {
      auto v = value();
      if (!v) return fail("--world attend un nom de monde");
      world = *v;
    } else if (a == "--timeline") {
      auto v = value();
      if (!v) return fail("--timeline attend un nom de timeline");
      timeline = *v;
    } else if (a == "--frames") {
      auto v = value();
      const auto dash = v ? v->find('-') : std::string::npos;
      auto a1 = v ? toInt(v->substr(0, dash)) : std::nullopt;
      auto b1 = v && dash != std::string::npos ? toInt(v->substr(dash + 1)) : a1;
      if (!a1 || !b1 || *a1 < 1 || *b1 < *a1) return fail("--frames attend A-B, de 1 à la dernière image (ex. 1-48)");
      first = *a1, last = *b1;
      rangeGiven = true;
    } else if (a == "--codec") {
      auto v = value();
      codecHint = v ? movieCodecNamed(*v) : std::nullopt;
      if (!codecHint) return fail("--codec attend prores4444, prores422hq ou h264");
    } else if (a == "--scale") {
      auto v = value();
      scale = 0;
      if (v) {  // the whole argument is the number: "0.5abc" is refused, not read as 0.5
        auto [end, ec] = std::from_chars(v->data(), v->data() + v->size(), scale);
        if (ec != std::errc() || end != v->data() + v->size()) scale = 0;
      }
      if (!(scale > 0 && scale <= 1)) return fail("--scale attend un nombre entre 0 et 1");
    } else if (a == "--out") {
      auto v = value();
      if (!v) return fail("--out attend un motif de fichier (ex. rendu_%05d.exr)");
      out = *v;
    } else if (project.empty() && a.rfind("--", 0) != 0) {
      project = a;
    } else {
      return fail("option inconnue : " + a);
    }
  }
  if (project.empty() || out.empty())
    return fail(tr(kUsage));
  if (!world.empty() && !timeline.empty()) return fail("--world et --timeline ne vont pas ensemble");
  if (frameField(out).at != std::string::npos && frameField(out.substr(frameField(out).at + frameField(out).length)).at != std::string::npos)
    return fail("le motif de sortie ne peut numéroter les images qu'une fois (un seul %d)");
  const std::optional<MovieCodec> movie = movieCodecFor(out, codecHint);
  if (codecHint && !movie) return fail("--codec ne vaut que pour un film (.mov ou .mp4)");
  if (!movie && last > first && frameField(out).at == std::string::npos)
    return fail("le motif de sortie doit contenir %d ou %05d pour numéroter les images");
  std::string ext = fs::path(out).extension().string();
  std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return char(std::tolower(c)); });
  if (!movie && ext != ".png" && ext != ".tif" && ext != ".tiff" && ext != ".exr")
    return fail("format de sortie inconnu (film .mov/.mp4, ou images PNG, TIFF, EXR) : " + fs::path(out).filename().string());

  std::signal(SIGINT, askToStop);
  std::signal(SIGTERM, askToStop);
  {
    std::error_code ec;
    const fs::path folder = fs::path(out).parent_path();
    if (fs::is_directory(folder.empty() ? fs::path(".") : folder, ec)) removeStaleParts(folder.empty() ? fs::path(".") : folder);
  }
  auto scheduler = std::make_shared<ManualScheduler>();
  // The model's settings live in a file of this run only: opening a project remembers it, and a
  // render farm's task must not change the artist's desktop.
  struct Scratch {
    fs::path file = fs::temp_directory_path() / ("ombrik-render-" + std::to_string(::getpid()) + ".conf");
    ~Scratch() {
      std::error_code ec;
      fs::remove(file, ec);
    }
  } scratch;
  AppModel model(AppModel::Options{.installed = false, .blankStart = true, .withEngine = true, .scheduler = scheduler,
                                   .defaultsFile = scratch.file.string()});
  if (!model.engine) return fail(model._status);
  if (!model.load(project)) return fail(model._status);
  if (!model._status.empty()) err << "ombrik render : " << model._status << std::endl;  // missing media
  if (!world.empty()) {
    auto it = std::find_if(model._batches.begin(), model._batches.end(), [&](const Batch& b) { return b.name == world; });
    if (it == model._batches.end()) return fail("aucun monde « " + world + " » dans " + fs::path(project).filename().string());
    model._currentBatchID = it->id;
    model._nodes = it->nodes;
    model._edges = it->edges;
    model.layout.replaceAll(it->positions);
  }
  model._previewScale = scale;
  PictureAt pictureAt;
  int length = 1;
  double fps = 25;
  if (!timeline.empty()) {
    auto it = std::find_if(model.tl.timelines.begin(), model.tl.timelines.end(),
                           [&](const Timeline& t) { return t.name == timeline; });
    if (it == model.tl.timelines.end())
      return fail("aucune timeline « " + timeline + " » dans " + fs::path(project).filename().string());
    model.openTimeline(it->id);
    length = it->duration();
    fps = std::max(1.0, it->fps);
    pictureAt = [&model](int frame, std::string* why) -> std::shared_ptr<gpu::Texture> {
      model.recomputeComp();
      auto job = model.timelineJob(frame);
      auto picture = job ? job->render(*model.engine, model.timelineReader()) : nullptr;
      if (!picture) *why = "la timeline ne donne pas d'image à l'image " + std::to_string(frame + 1);
      return picture;
    };
  } else {
    auto output = std::find_if(model._nodes.begin(), model._nodes.end(), [](const Node& n) { return n.kind->id == "output"; });
    if (output == model._nodes.end()) return fail("le monde n'a pas de node Sortie");
    const Uuid outputID = output->id;
    VideoSource* video = model.activeVideo();
    length = std::max(1, video ? model.batchFrames(*video) : model._frameCount);
    fps = video ? video->fps() : model._fps;
    pictureAt = [&model, outputID](int frame, std::string* why) -> std::shared_ptr<gpu::Texture> {
      model._currentFrame = frame;
      model.loadVideoFrames(frame);  // clips read forward, each frame exactly
      model.performRender(true);
      auto it = model.engine->outputs.find(outputID);
      if (it == model.engine->outputs.end()) {
        *why = noPicture(model, outputID, frame + 1);
        return nullptr;
      }
      return model.deliveredPicture(it->second);
    };
  }
  // A range past the end would only repeat the last frame, and numbers near the integer limit
  // would wrap: both are refused.
  if (rangeGiven && last > length)
    return fail(std::string(timeline.empty() ? "--frames va au-delà de la dernière image du monde ("
                                             : "--frames va au-delà de la dernière image de la timeline (") +
                std::to_string(length) + ")");
  if (movie) {
    if (!rangeGiven) first = 1, last = length;
    return renderMovie(model, pictureAt, out, *movie, fps, !timeline.empty(), first, last, err) ? 0 : 1;
  }
  const int count = last - first + 1;
  for (int frame = first; frame <= last; ++frame) {
    if (gStop) return fail("interrompu avant l'image " + std::to_string(frame) + " · les images déjà écrites restent");
    std::string why;
    const auto picture = pictureAt(frame - 1, &why);
    if (!picture) return fail(why);
    const std::string file = fileFor(out, frame - 1);  // files count from 0, as the desktop's sequences
    std::error_code ec;
    if (const auto dir = fs::path(file).parent_path(); !dir.empty()) fs::create_directories(dir, ec);
    std::string error;
    if (!model.engine->export_(picture, file, &error)) return fail(error);
    err << "image " << frame << " (" << (frame - first + 1) << "/" << count << ") → " << file << std::endl;
  }
  return 0;
}

}  // namespace ombrik
