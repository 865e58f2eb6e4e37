#pragma once
// A file or folder path on one line: the middle gives way to "…" when the room is short, so both
// the start of the path and the name at its end stay readable. The whole path is in the tooltip.
#include <QLabel>

namespace ombrik {

class PathLabel : public QLabel {
public:
  explicit PathLabel(QWidget* parent = nullptr);
  void setPath(const QString& path);
  QString path() const { return path_; }
  QSize minimumSizeHint() const override;

protected:
  void resizeEvent(QResizeEvent* event) override;

private:
  void elide();
  QString path_;
};

}  // namespace ombrik
