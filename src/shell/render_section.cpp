#include "shell/render_section.h"

#include <QDesktopServices>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QUrl>
#include <QVBoxLayout>
#include <algorithm>

#include "document/app_model.h"
#include "media/video_source.h"
#include "shell/path_label.h"
#include "shell/shown_text.h"

namespace ombrik {

namespace fs = std::filesystem;

namespace {
QLabel* note(const char* text, QWidget* parent) {
  auto* label = new QLabel(shown(text), parent);
  label->setWordWrap(true);
  label->setStyleSheet("QLabel { color: #9a9aa2; }");
  return label;
}

void setText(QAbstractButton* button, const QString& text) {
  if (button->text() != text) button->setText(text);
}
}  // namespace

void revealRender(const fs::path& output) {
  std::error_code ec;
  const fs::path folder = fs::is_directory(output, ec) ? output : output.parent_path();
  QDesktopServices::openUrl(QUrl::fromLocalFile(QString::fromStdString(folder.string())));
}

RenderSection::RenderSection(AppModel& model, QWidget* parent) : QWidget(parent), model_(model) {
  setObjectName("renderSection");
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(0, 8, 0, 0);
  auto* line = new QFrame(this);
  line->setFrameShape(QFrame::HLine);
  line->setStyleSheet("QFrame { color: #3a3a40; }");
  column->addWidget(line);
  column->addWidget(output_ = outputPart());
  column->addWidget(mux_ = muxPart());
  hide();
}

QWidget* RenderSection::outputPart() {
  auto* part = new QWidget(this);
  auto* column = new QVBoxLayout(part);
  column->setContentsMargins(0, 0, 0, 0);
  column->addWidget(note("Pleine résolution, image par image. Le nom suit le graphe ; un rendu existant n'est jamais écrasé (_v02, _v03…).", part));
  auto* where = new QHBoxLayout;
  folder_ = new PathLabel(part);
  folder_->setObjectName("renderFolder");
  auto* choose = new QPushButton(shown("Choisir…"), part);
  choose->setObjectName("chooseRenderFolder");
  where->addWidget(folder_, 1);
  where->addWidget(choose);
  column->addLayout(where);
  render_ = new QPushButton(part);
  render_->setObjectName("renderShot");
  reveal_ = new QPushButton(shown("Afficher le dernier rendu"), part);
  reveal_->setObjectName("showLastRender");
  column->addWidget(render_);
  column->addWidget(reveal_);
  connect(choose, &QPushButton::clicked, this, [this] {
    if (node_) model_.chooseRenderFolder(*node_);
  });
  // One button: it starts the render, and stops it while it runs.
  connect(render_, &QPushButton::clicked, this, [this] {
    if (model_.rendering) model_.stopAllRenders();
    else if (node_) model_.renderSequence(*node_);
  });
  connect(reveal_, &QPushButton::clicked, this, [this] {
    if (model_.delivery.lastRender) revealRender(*model_.delivery.lastRender);
  });
  return part;
}

QWidget* RenderSection::muxPart() {
  auto* part = new QWidget(this);
  auto* column = new QVBoxLayout(part);
  column->setContentsMargins(0, 0, 0, 0);
  cached_ = new QLabel(part);
  cached_->setObjectName("muxCount");
  cache_ = new QPushButton(part);
  cache_->setObjectName("muxCache");
  clear_ = new QPushButton(shown("Vider le cache"), part);
  clear_->setObjectName("muxClear");
  auto* buttons = new QHBoxLayout;
  buttons->addWidget(cache_, 1);
  buttons->addWidget(clear_);
  column->addWidget(cached_);
  column->addLayout(buttons);
  column->addWidget(note("Pleine résolution, TIFF 16 bits + alpha. Après un changement en amont, recalculez le cache (ou décochez Checkpoint).", part));
  connect(cache_, &QPushButton::clicked, this, [this] {
    if (node_) model_.muxCache(*node_);
    cachedCount_ = -1;
  });
  connect(clear_, &QPushButton::clicked, this, [this] {
    if (node_) model_.muxClear(*node_);
    cachedCount_ = -1;
  });
  return part;
}

void RenderSection::refresh(const Node* node) {
  const std::string kind = node ? node->kind->id : std::string();
  const bool output = kind == "output", mux = kind == "mux";
  const std::optional<Uuid> id = node ? std::optional(node->id) : std::nullopt;
  if (id != node_) cachedCount_ = -1;
  node_ = id;
  if (isHidden() == (output || mux)) setVisible(output || mux);
  if (output_->isHidden() == output) output_->setVisible(output);
  if (mux_->isHidden() == mux) mux_->setVisible(mux);
  if (output) refreshOutput(*node);
  if (mux) refreshMux(*node);
}

void RenderSection::refreshOutput(const Node& node) {
  folder_->setPath(node.path.empty() ? shown("Aucun dossier de rendu") : qs(node.path));
  if (model_.rendering) {
    setText(render_, shown("Annuler le rendu"));
  } else {
    // The frames the render will write: the clip's, or the world's length without one.
    const VideoSource* video = model_.activeVideo();
    const int frames = std::max(1, video ? model_.batchFrames(*video) : model_._frameCount);
    setText(render_, shown("Rendre le plan (%1)").arg(frames));
  }
  render_->setEnabled(model_.engine != nullptr);
  reveal_->setEnabled(model_.delivery.lastRender.has_value());
}

void RenderSection::refreshMux(const Node& node) {
  if (cachedCount_ < 0 || countedProgress_ != model_.delivery.renderProgress || countedStatus_ != model_._status) {
    cachedCount_ = model_.muxCachedCount(node.id);
    countedProgress_ = model_.delivery.renderProgress;
    countedStatus_ = model_._status;
    cached_->setText(shown("%1 images en cache").arg(cachedCount_));
  }
  setText(cache_, shown(cachedCount_ > 0 ? "Recalculer le cache" : "Mettre en cache le plan"));
  cache_->setEnabled(!model_.rendering && model_.engine != nullptr);
  clear_->setEnabled(!model_.rendering && cachedCount_ > 0);
}

}  // namespace ombrik
