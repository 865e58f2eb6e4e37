#include "document/app_model.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "engine/engine.h"
#include "engine/source_picture.h"
#include "document/play_state.h"
#include "document/world_pack.h"
#include "media/timeline_reader.h"
#include "media/forward_readers.h"
#include "media/video_source.h"
#include "platform/app_paths.h"
#include "platform/scheduler.h"
#include "platform/user_defaults.h"
#include "tracking/tap_server.h"

namespace ombrik {

AppModel::Options AppModel::processOptions() {
  Options o;
  o.installed = AppPaths::shared().isBundled;
  const char* blank = std::getenv("OMBRIK_BLANK_START");
  o.blankStart = blank && std::strcmp(blank, "1") == 0;
  return o;
}

void AppModel::startExampleWorld() {
  Batch world;
  world.id = Uuid::generate();
  world.name = "Beauty_v01";
  _batches.push_back(world);
  _currentBatchID = world.id;
  addMedia(SampleImage::make(), "Exemple beauté");
  buildDefaultGraph();
  saveCurrentBatch();
}

AppModel::AppModel(const Options& options)
    : userNodes(options.userNodesDir ? *options.userNodesDir : AppPaths::shared().support / "Nodes"),
      scheduler_(options.scheduler ? options.scheduler : makeEventLoopScheduler()),
      defaults_(options.defaultsFile.empty() ? std::make_unique<UserDefaults>()
                                             : std::make_unique<UserDefaults>(options.defaultsFile)),
      dialogs_(options.dialogs),
      dataDir_(options.dataDir ? *options.dataDir : AppPaths::shared().data),
      relaunch_(options.relaunch),
      installed_(options.installed) {
  if (options.withEngine) {
    std::string error;
    engine = Engine::create(&error);
    if (!engine) _status = "GPU indisponible : " + error;
  }
  // The library before any project, whose nodes may be the library's.
  userNodes.loadAll(userKernelCompiler());
  if (const std::string report = UserNodes::report(userNodes.problems()); !report.empty())
    _status = _status.empty() ? report : _status + " · " + report;
  // The example world of a development tree needs graph editing and the sample picture;
  // until they exist every start is the blank world, marked placeholder when installed.
  _compareStyle = std::clamp(defaults_->integer("compareStyle"), 0, 2);
  tracking.correct = defaults_->boolean("trackCorrect");
  ai.sound.enabled = defaults_->boolean("taskSound");
  if (defaults_->string("trackEngine") == std::string(trackEngineName(TrackEngine::precise))) tracking.engine = TrackEngine::precise;
  layout.onChange = [this] { historyChanged(); };
  if (!(options.openLastProject && openLastProject())) {
    // An installed program starts blank; a development tree opens the example world.
    if (options.installed || options.blankStart) startBlankWorld(options.installed);
    else startExampleWorld();
  }
  resetHistory();
  history.dirty = false;
  setOcioConfig(OcioDisplay::envConfig());
  requestRender();
}

AppModel::~AppModel() {
  endTracking();
  endAI();
  if (history.pending) scheduler_->cancel(*history.pending);
  for (auto token : {pumpTimer_, inboxTimer_, fullRenderTimer_, bodyDemand_, play ? play->timer : std::nullopt})
    if (token) scheduler_->cancel(*token);
}

void AppModel::startBlankWorld(bool placeholder) {
  Batch world;
  world.id = Uuid::generate();
  world.name = "Batch_01";
  world.placeholder = placeholder;
  _batches.push_back(world);
  _currentBatchID = world.id;

  Node out(NodeKind::output());
  layout.set(out.id, Point{600, 140});
  _nodes.push_back(std::move(out));
  saveCurrentBatch();
}

}  // namespace ombrik
