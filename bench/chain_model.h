#pragma once
// The model the playback benches share: a clip through media -> colour -> blur -> output at half
// preview, on the test clock, its settings in `dir`.
#include <cstdio>
#include <filesystem>
#include <optional>
#include <memory>
#include <string>

#include "document/app_model.h"
#include "platform/scheduler.h"

namespace ombrik::bench {

struct ChainModel {
  std::unique_ptr<AppModel> m;
  Uuid color;
};

// None with the reason on stderr when the engine or the clip can't be had.
inline std::optional<ChainModel> colourBlurChain(const std::filesystem::path& clip, const std::filesystem::path& dir,
                                                 std::shared_ptr<ManualScheduler> clock) {
  auto m = std::make_unique<AppModel>(AppModel::Options{.blankStart = true, .withEngine = true, .scheduler = clock,
                                                        .defaultsFile = (dir / "d.conf").string(), .dataDir = dir / "data"});
  if (!m->engine || !m->importURL(clip)) {
    std::fprintf(stderr, "%s\n", m->_status.c_str());
    return std::nullopt;
  }
  const Uuid out = m->_nodes.front().id;
  const Uuid media = m->addNode(NodeKind::media(), {0, 0});
  const Uuid color = m->addNode(NodeKind::color(), {200, 0});
  const Uuid blur = m->addNode(*NodeKind::find("blur"), {400, 0});
  m->setMedia(media, m->_media.back().id);
  m->connect(media, color, 0, 0);
  m->connect(color, blur, 0, 0);
  m->connect(blur, out, 0, 0);
  m->setPreviewScale(0.5);
  return ChainModel{std::move(m), color};
}

}  // namespace ombrik::bench
