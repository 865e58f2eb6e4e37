#include "shell/viewer_widget.h"

#include <QKeyEvent>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>
#include <QPushButton>
#include <QAbstractSpinBox>
#include <QApplication>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QShortcut>
#include <QTextEdit>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>

#include "document/app_model.h"
#include "document/viewer_blank.h"
#include "engine/engine.h"
#include "shell/picture_image.h"
#include "shell/shown_text.h"

namespace ombrik {

namespace {
// A read-back never needs more pixels than the texture has, nor than a large screen shows.
constexpr int kMaxReadSide = 4096;
}  // namespace

ViewerWidget::ViewerWidget(AppModel& model, QWidget* parent) : QWidget(parent), model_(model), roto_(model), ai_(model) {
  setObjectName("viewer");
  setMinimumSize(240, 160);
  setMouseTracking(true);
  setFocusPolicy(Qt::ClickFocus);
  readout_ = new QLabel(this);
  readout_->setObjectName("viewerReadout");
  readout_->setStyleSheet("QLabel { color: #c8c8cc; background: rgba(0,0,0,140); padding: 2px 6px; font: 11px monospace; }");
  readout_->hide();
  import_ = new QPushButton(shown("Importer des rushs…"), this);
  import_->setObjectName("viewerImport");
  import_->setCursor(Qt::PointingHandCursor);
  // The one thing to do on an empty project: in the accent colour, not a grey button among others.
  import_->setStyleSheet("QPushButton { background: rgb(60,110,190); color: white; border: none; border-radius: 4px;"
                         " padding: 7px 18px; font-weight: bold; } QPushButton:hover { background: rgb(76,128,210); }");
  import_->hide();
  connect(import_, &QPushButton::clicked, this, [this] { model_.importPanel(); });
  addShortcuts();
}

void ViewerWidget::addShortcuts() {
  // Window-wide, as the viewer's keys work wherever the pointer is (a text field keeps its own keys).
  auto key = [this](const QKeySequence& seq, auto action) {
    auto* s = new QShortcut(seq, this);
    s->setContext(Qt::WindowShortcut);
    s->setAutoRepeat(false);
    connect(s, &QShortcut::activated, this, action);
  };
  key(QKeySequence(Qt::CTRL | Qt::Key_0), [this] { fit(); });
  key(QKeySequence(Qt::CTRL | Qt::Key_1), [this] { actualPixels(); });
  const Qt::Key fkeys[] = {Qt::Key_F1, Qt::Key_F2, Qt::Key_F3, Qt::Key_F4};
  for (int k = 1; k <= 4; ++k)
    key(QKeySequence(fkeys[k - 1]), [this, k] {
      model_.flameView(k);
      update();
    });
  key(QKeySequence(Qt::Key_Escape), [this] {
    // A text field being typed in lets go of the keyboard first, then Esc goes on as anywhere.
    if (QWidget* typing = QApplication::focusWidget();
        typing && (qobject_cast<QLineEdit*>(typing) || qobject_cast<QAbstractSpinBox*>(typing) ||
                   qobject_cast<QTextEdit*>(typing) || qobject_cast<QPlainTextEdit*>(typing)))
      typing->clearFocus();
    if (model_._trackingProgress) {  // a tracking run stops first; what it found stays
      model_.stopTracking();
      return;
    }
    model_.escapeView();
  });
  // I hides the overlays wherever the keyboard is; held down it must not blink them.
  key(QKeySequence(Qt::Key_I), [this] { model_.iKey(); });
  key(QKeySequence(Qt::Key_Backslash), [this] { model_.toggleBefore(); });
}

void ViewerWidget::fit() {
  model_.fitViewer();
  update();
}

void ViewerWidget::actualPixels() {
  model_.actualPixels(width(), height(), devicePixelRatioF());
  update();
}

QRectF ViewerWidget::pictureRect() const {
  const AppModel::ViewRect r = model_.viewerRect(width(), height());
  return QRectF(r.x, r.y, r.width, r.height);
}

QSize ViewerWidget::readSize(const Engine::Tex& tex) const {
  if (!tex) return {};
  const QRectF r = pictureRect();
  const double dpr = devicePixelRatioF();
  const int w = std::min({int(std::ceil(r.width() * dpr)), tex->width(), kMaxReadSide});
  const int h = std::min({int(std::ceil(r.height() * dpr)), tex->height(), kMaxReadSide});
  return QSize(std::max(1, w), std::max(1, h));
}

ViewerWidget::Source ViewerWidget::source(const AppModel::ViewerState& state) const {
  Source s;
  s.frameID = model_._frameID;
  s.time = model_._currentFrame;
  s.node = model_.displayedNodeID();
  s.main = state.main.get();
  s.before = state.before.get();
  s.mode = state.mode;
  s.wipe = state.mode == 2 ? model_._wipe : 0;
  s.size = readSize(state.main);
  return s;
}

void ViewerWidget::readBack(const AppModel::ViewerState& state) {
  read_ = source(state);
  if (!state.main || read_.size.isEmpty()) {
    picture_ = QImage();
    return;
  }
  const QRectF r = pictureRect();
  Engine::ViewP p;
  p.mode = float(state.mode);
  p.wipe = float(model_._wipe);
  p.lineW = r.width() > 0 ? float(1.5 / r.width()) : 0.f;
  p.nearest = r.width() * devicePixelRatioF() > 2.0 * state.main->width() ? 1.f : 0.f;
  shownTex_ = model_.engine->viewerPicture(state.main, state.before, p, read_.size.width(), read_.size.height(), shownTex_);
  if (!shownTex_ || !model_.engine->readBytes(shownTex_, bytes_)) {
    picture_ = QImage();
    return;
  }
  picture_ = opaqueImage(bytes_, shownTex_->width(), shownTex_->height(), std::move(picture_));
}

void ViewerWidget::refresh() {
  // The state is worked out once a tick; a picture is read back only when it changed.
  const AppModel::ViewerState state = model_.viewerPictures();
  if (!(source(state) == read_)) {
    readBack(state);
    hoverMoved_ = true;  // the colour under the pointer may have changed with the picture
    update();
  }
  std::string title = model_.viewedTitle();
  if (model_.viewZoom != drawnZoom_ || !(model_.viewPan == drawnPan_) || title != drawnTitle_) update();
  refreshBlank();
  // A mask edited elsewhere (the inspector, undo, the tool bar) is drawn anew over the picture.
  if (!picture_.isNull() && (roto_.changed() || ai_.changed())) update();
  const Qt::CursorShape cursor = roto_.takesMouse() || ai_.takesMouse() ? Qt::CrossCursor : Qt::ArrowCursor;
  if (this->cursor().shape() != cursor) setCursor(cursor);
  if (hoverMoved_) updateReadout();
}

void ViewerWidget::paintEvent(QPaintEvent*) {
  QPainter p(this);
  p.fillRect(rect(), QColor::fromRgbF(0.035f, 0.035f, 0.04f));
  drawnZoom_ = model_.viewZoom;
  drawnPan_ = model_.viewPan;
  drawnTitle_ = model_.viewedTitle();
  if (picture_.isNull()) {
    drawBlank(p);
    return;
  }
  const QRectF r = pictureRect();
  // Enlarged far past the picture's own pixels, the pixels are shown as squares.
  const Engine::Tex tex = model_.viewerTexture();
  const bool nearest = tex && r.width() * devicePixelRatioF() > 2.0 * tex->width();
  p.setRenderHint(QPainter::SmoothPixmapTransform, !nearest);
  p.drawImage(r, picture_);
  roto_.paint(p, r);
  ai_.paint(p, r);

  const QString title = caption();
  QFont f = font();
  f.setPointSizeF(f.pointSizeF() * 0.95);
  f.setBold(true);
  p.setFont(f);
  const QRectF band(8, 6, p.fontMetrics().horizontalAdvance(title) + 16, p.fontMetrics().height() + 6);
  p.setPen(Qt::NoPen);
  p.setBrush(QColor(0, 0, 0, 150));
  p.drawRoundedRect(band, 4, 4);
  p.setPen(QColor(230, 230, 235));
  p.drawText(band, Qt::AlignCenter, title);
  if (model_.isCompare()) drawCompareBadge(p);
  if (dropHint_) {
    p.fillRect(rect(), QColor(0, 0, 0, 120));
    p.setPen(QColor(255, 214, 140));
    p.drawText(rect(), Qt::AlignCenter, shown("Lâchez pour afficher ce node"));
  }
}

QString ViewerWidget::caption() const {
  const std::optional<Uuid> id = model_.displayedNodeID();
  const Node* n = id ? model_.nodeByID(*id) : nullptr;
  QString text = shown(n ? n->title() : std::string("Render"));
  if (model_.viewWithoutMatte) text += shown(" · plein cadre, sans alpha");
  return text;
}

void ViewerWidget::refreshBlank() {
  QString text;
  bool offersImport = false;
  if (picture_.isNull()) {
    const ViewerBlank blank = model_.viewerBlank();
    text = shown(blank.headline()).replace("%s", shown(blank.subject));
    const QString advice = blank.detail.empty() ? shown(blank.advice()) : shown(blank.detail);
    if (!advice.isEmpty()) text += "\n" + advice;
    offersImport = blank.offersImport() && !dropHint_;
  }
  if (import_->isVisible() != offersImport) {
    import_->setVisible(offersImport);
    placeImport();
  }
  if (text != blankText_) {
    blankText_ = text;
    placeImport();
    update();
  }
}

void ViewerWidget::placeImport() {
  import_->adjustSize();
  // Under the two lines of text, which stand at the middle of the view.
  const int below = height() / 2 + fontMetrics().height() * 2 + 10;
  import_->move((width() - import_->width()) / 2, std::min(below, height() - import_->height() - 8));
}

void ViewerWidget::resizeEvent(QResizeEvent* event) {
  QWidget::resizeEvent(event);
  placeImport();
}

void ViewerWidget::drawBlank(QPainter& p) {
  if (dropHint_) {
    p.setPen(QColor(255, 214, 140));
    p.drawText(rect(), Qt::AlignCenter, shown("Lâchez pour afficher ce node"));
    return;
  }
  const int lines = blankText_.indexOf('\n');
  const QString headline = lines < 0 ? blankText_ : blankText_.left(lines);
  const QString advice = lines < 0 ? QString() : blankText_.mid(lines + 1);
  // The headline just above the middle, the advice under it, both wrapped to the view's width.
  const QRect band = rect().adjusted(24, 0, -24, 0);
  QFont big = font();
  big.setPointSizeF(big.pointSizeF() * 1.15);
  big.setBold(true);
  p.setFont(big);
  p.setPen(QColor(200, 200, 208));
  const QRect top(band.left(), 0, band.width(), height() / 2 - 2);
  p.drawText(top, Qt::AlignHCenter | Qt::AlignBottom | Qt::TextWordWrap, headline);
  p.setFont(font());
  p.setPen(QColor(140, 140, 150));
  const QRect under(band.left(), height() / 2 + 4, band.width(), height() / 2 - 4);
  p.drawText(under, Qt::AlignHCenter | Qt::AlignTop | Qt::TextWordWrap, advice);
}

void ViewerWidget::setDropHint(bool on) {
  if (on == dropHint_) return;
  dropHint_ = on;
  refreshBlank();  // the import button steps aside for the drop
  update();
}

void ViewerWidget::drawCompareBadge(QPainter& p) {
  const char* text = model_._compareStyle == 1   ? "Volet (curseur)"
                     : model_._compareStyle == 2 ? "Différence (×4)"
                     : model_._showingBefore     ? "AVANT · rush natif"
                                                 : "APRÈS · résultat";
  const QString label = shown(text);
  const QRectF band(width() - p.fontMetrics().horizontalAdvance(label) - 24, 6,
                    p.fontMetrics().horizontalAdvance(label) + 16, p.fontMetrics().height() + 6);
  p.setPen(Qt::NoPen);
  // The rush side in the wipe's amber, the result in the accent blue.
  p.setBrush(model_._showingBefore && model_._compareStyle == 0 ? QColor(240, 181, 74, 200) : QColor(60, 110, 190, 200));
  p.drawRoundedRect(band, 4, 4);
  p.setPen(QColor(245, 245, 248));
  p.drawText(band, Qt::AlignCenter, label);
}

void ViewerWidget::wheelEvent(QWheelEvent* event) {
  const double notches = event->angleDelta().y() / 120.0;
  if (notches == 0) return;
  const QPointF at = event->position();
  model_.zoomViewer(std::pow(1.2, notches), Point{at.x(), at.y()}, width(), height());
  update();
  event->accept();
}

void ViewerWidget::mousePressEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton && event->button() != Qt::MiddleButton) return;
  if (event->button() == Qt::LeftButton && roto_.press(event->position(), event->modifiers(), pictureRect())) {
    update();
    return;
  }
  if (event->button() == Qt::LeftButton && !roto_.takesMouse() && ai_.press(event->position(), event->modifiers(), pictureRect())) {
    update();
    return;
  }
  wipeDrag_ = event->button() == Qt::LeftButton && model_.isCompare() && model_._compareStyle == 1;
  if (wipeDrag_) {
    moveWipe(event->position());
    return;
  }
  dragFrom_ = event->position();
  panAtPress_ = model_.viewPan;
}

void ViewerWidget::mouseMoveEvent(QMouseEvent* event) {
  hover_ = event->position();
  hoverMoved_ = true;
  if (roto_.dragging()) {
    roto_.drag(event->position());
    update();
    return;
  }
  if (wipeDrag_) {
    moveWipe(event->position());
    return;
  }
  if (!dragFrom_) return;
  const QPointF d = event->position() - *dragFrom_;
  model_.viewPan = Point{panAtPress_.x + d.x(), panAtPress_.y + d.y()};
  update();
}

void ViewerWidget::mouseReleaseEvent(QMouseEvent* event) {
  if (roto_.dragging()) {
    roto_.release(event->position());
    update();
  }
  dragFrom_.reset();
  wipeDrag_ = false;
}

void ViewerWidget::mouseDoubleClickEvent(QMouseEvent* event) {
  if (event->button() == Qt::LeftButton && roto_.takesMouse()) {
    // The first click of the pair already did its work; only a point answers the second.
    if (roto_.doubleClick(event->position(), pictureRect())) update();
    return;
  }
  if (event->button() == Qt::LeftButton && ai_.takesMouse()) return;  // the first click placed its point
  mousePressEvent(event);
}

void ViewerWidget::keyPressEvent(QKeyEvent* event) {
  // The tools' keys are bare letters; with Ctrl or Alt a key belongs to the menus.
  const bool bare = !(event->modifiers() & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier));
  if (bare && roto_.keyPress(event->key(), event->isAutoRepeat()))
    update();
  else
    QWidget::keyPressEvent(event);
}

void ViewerWidget::keyReleaseEvent(QKeyEvent* event) {
  if (!roto_.keyRelease(event->key(), event->isAutoRepeat())) QWidget::keyReleaseEvent(event);
}

void ViewerWidget::focusOutEvent(QFocusEvent* event) {
  roto_.keyRelease(Qt::Key_A, false);  // its release goes elsewhere: A is no longer held here
  QWidget::focusOutEvent(event);
}

void ViewerWidget::moveWipe(QPointF at) {
  const QRectF r = pictureRect();
  if (r.width() <= 0) return;
  model_.setWipe((at.x() - r.x()) / r.width());
  refresh();
}

void ViewerWidget::leaveEvent(QEvent*) {
  hover_.reset();
  hoverMoved_ = true;
}

QString ViewerWidget::readoutText() const { return readout_->isVisible() ? readout_->text() : QString(); }

void ViewerWidget::updateReadout() {
  hoverMoved_ = false;
  const Engine::Tex tex = model_.viewerTexture();
  const QRectF r = pictureRect();
  if (!hover_ || !tex || picture_.isNull() || !r.contains(*hover_)) {
    readout_->hide();
    return;
  }
  const double fx = (hover_->x() - r.x()) / r.width(), fy = (hover_->y() - r.y()) / r.height();
  const int tx = std::clamp(int(fx * tex->width()), 0, tex->width() - 1);
  const int ty = std::clamp(int(fy * tex->height()), 0, tex->height() - 1);
  const auto c = model_.engine->readColor(tex, tx, ty, 0);
  if (!c) {
    readout_->hide();
    return;
  }
  // Positions in comp pixels, whatever the preview scale.
  const int cx = int(fx * model_._compSize.width), cy = int(fy * model_._compSize.height);
  readout_->setText(QStringLiteral("%1, %2   R %3  G %4  B %5")
                        .arg(cx)
                        .arg(cy)
                        .arg((*c)[0], 0, 'f', 3)
                        .arg((*c)[1], 0, 'f', 3)
                        .arg((*c)[2], 0, 'f', 3));
  readout_->adjustSize();
  readout_->move(8, height() - readout_->height() - 8);
  readout_->show();
}

}  // namespace ombrik
