#include "shell/path_label.h"

#include <QFontMetrics>

namespace ombrik {

PathLabel::PathLabel(QWidget* parent) : QLabel(parent) {
  setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
  setTextInteractionFlags(Qt::TextSelectableByMouse);
}

void PathLabel::setPath(const QString& path) {
  if (path == path_ && !text().isEmpty()) return;
  path_ = path;
  setToolTip(path);
  elide();
}

// A path has no spaces to wrap at: the label asks for a little room and elides the rest.
QSize PathLabel::minimumSizeHint() const { return {fontMetrics().averageCharWidth() * 8, QLabel::minimumSizeHint().height()}; }

void PathLabel::resizeEvent(QResizeEvent* event) {
  QLabel::resizeEvent(event);
  elide();
}

void PathLabel::elide() {
  const QString shown = fontMetrics().elidedText(path_, Qt::ElideMiddle, std::max(1, contentsRect().width()));
  if (shown != text()) setText(shown);
}

}  // namespace ombrik
