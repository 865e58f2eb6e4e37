#include "shell/timeline_settings.h"

#include <QCheckBox>
#include <QColorDialog>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>
#include <algorithm>
#include <cmath>

#include "document/app_model.h"
#include "shell/shown_text.h"
#include "shell/timeline_painter.h"

namespace ombrik {

namespace {
struct Preset {
  const char* name;
  int width, height;
};
const Preset kPresets[] = {
    {"HD 1080 (1920 × 1080)", 1920, 1080},       {"UHD 4K (3840 × 2160)", 3840, 2160},
    {"4K DCI (4096 × 2160)", 4096, 2160},        {"2K DCI (2048 × 1080)", 2048, 1080},
    {"HD 720 (1280 × 720)", 1280, 720},          {"Vertical 9:16 (1080 × 1920)", 1080, 1920},
    {"Vertical 4K (2160 × 3840)", 2160, 3840},   {"Instagram 4:5 (1080 × 1350)", 1080, 1350},
    {"Carré (1080 × 1080)", 1080, 1080},
};
constexpr int kFreshDuration = 250;  // the frame count offered when none is set

QSpinBox* spin(QWidget* parent, const char* name, int lo, int hi, int value) {
  auto* s = new QSpinBox(parent);
  s->setObjectName(name);
  s->setRange(lo, hi);
  s->setValue(value);
  return s;
}
}  // namespace

TimelineSettings::TimelineSettings(AppModel& model, const Uuid& timeline, QWidget* parent)
    : QDialog(parent), model_(model), id_(timeline) {
  setObjectName("timelineSettings");
  setWindowTitle(shown("Réglages de la timeline"));
  setMinimumWidth(480);
  const Timeline* t = model_.tl.find(id_);
  const Timeline fresh;
  const Timeline& shownT = t ? *t : fresh;
  for (const TLayer& l : shownT.layers) layersEnd_ = std::max(layersEnd_, l.end());

  auto* column = new QVBoxLayout(this);
  auto* title = new QLabel(shown("Réglages de la timeline"), this);
  QFont bold = title->font();
  bold.setBold(true);
  bold.setPointSizeF(bold.pointSizeF() * 1.15);
  title->setFont(bold);
  column->addWidget(title);
  auto* form = new QFormLayout;
  column->addLayout(form);

  name_ = new QLineEdit(qs(shownT.name), this);
  name_->setObjectName("timelineName");
  form->addRow(shown("Nom"), name_);

  presets_ = new QComboBox(this);
  presets_->setObjectName("sizePresets");
  presets_->setPlaceholderText(shown("Taille personnalisée"));
  for (const Preset& p : kPresets) presets_->addItem(shown(p.name));
  form->addRow(shown("Format"), presets_);

  auto* size = new QHBoxLayout;
  width_ = spin(this, "timelineWidth", 16, 8192, std::clamp(shownT.width, 16, 8192));
  height_ = spin(this, "timelineHeight", 16, 8192, std::clamp(shownT.height, 16, 8192));
  auto* swap = new QPushButton(shown("Inverser (horizontal / vertical)"), this);
  swap->setObjectName("swapSize");
  size->addWidget(width_);
  size->addWidget(new QLabel(QStringLiteral("×"), this));
  size->addWidget(height_);
  size->addWidget(swap, 1);
  form->addRow(shown("Taille"), size);

  fps_ = new QDoubleSpinBox(this);
  fps_->setObjectName("timelineFps");
  fps_->setRange(1, 240);
  fps_->setDecimals(3);
  fps_->setValue(shownT.fps);
  form->addRow(shown("Cadence"), fps_);

  automatic_ = new QCheckBox(shown("Durée automatique (jusqu'à la fin du dernier calque)"), this);
  automatic_->setObjectName("automaticDuration");
  automatic_->setChecked(!shownT.fixedDuration);
  auto* duration = new QHBoxLayout;
  frames_ = spin(this, "durationFrames", 1, 10'000'000, shownT.fixedDuration.value_or(kFreshDuration));
  timecode_ = new QLabel(this);
  timecode_->setObjectName("durationTimecode");
  duration->addWidget(frames_);
  duration->addWidget(timecode_, 1);
  form->addRow(shown("Durée"), automatic_);
  form->addRow(QString(), duration);

  colour_ = new QPushButton(this);
  colour_->setObjectName("backgroundColour");
  const auto bg = shownT.bg();
  background_ = QColor::fromRgbF(float(std::clamp(bg[0], 0.0, 1.0)), float(std::clamp(bg[1], 0.0, 1.0)),
                                 float(std::clamp(bg[2], 0.0, 1.0)));
  form->addRow(shown("Fond"), colour_);

  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
  column->addWidget(buttons);

  connect(presets_, &QComboBox::activated, this, [this](int i) {
    if (i < 0 || i >= int(std::size(kPresets))) return;
    width_->setValue(kPresets[i].width);
    height_->setValue(kPresets[i].height);
  });
  connect(width_, &QSpinBox::valueChanged, this, [this] { sizeChanged(); });
  connect(height_, &QSpinBox::valueChanged, this, [this] { sizeChanged(); });
  connect(swap, &QPushButton::clicked, this, [this] { swapSize(); });
  connect(fps_, &QDoubleSpinBox::valueChanged, this, [this] { durationChanged(); });
  connect(automatic_, &QCheckBox::toggled, this, [this] { durationChanged(); });
  connect(frames_, &QSpinBox::valueChanged, this, [this] { durationChanged(); });
  connect(colour_, &QPushButton::clicked, this, [this] {
    const auto chosen = askColor ? askColor(background_)
                                 : [this]() -> std::optional<QColor> {
                                     const QColor c = QColorDialog::getColor(background_, this, shown("Fond"));
                                     return c.isValid() ? std::optional(c) : std::nullopt;
                                   }();
    if (chosen) setBackground(*chosen);
  });
  connect(buttons, &QDialogButtonBox::accepted, this, [this] {
    apply();
    accept();
  });
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

  setBackground(background_);
  backgroundChosen_ = false;
  sizeChanged();
  durationChanged();
}

void TimelineSettings::setBackground(const QColor& c) {
  background_ = c;
  backgroundChosen_ = true;
  colour_->setText(c.name(QColor::HexRgb).toUpper());
  // The swatch is the button itself; its text stays readable on light and dark colours.
  const QString ink = c.lightnessF() > 0.55 ? "#000000" : "#ffffff";
  colour_->setStyleSheet(QString("QPushButton { background: %1; color: %2; border: 1px solid #666; padding: 4px 14px; }")
                             .arg(c.name(QColor::HexRgb), ink));
}

void TimelineSettings::swapSize() {
  const int w = width_->value();
  width_->setValue(height_->value());
  height_->setValue(w);
}

void TimelineSettings::sizeChanged() {
  int match = -1;
  for (int i = 0; i < int(std::size(kPresets)); ++i)
    if (kPresets[i].width == width_->value() && kPresets[i].height == height_->value()) match = i;
  presets_->setCurrentIndex(match);
}

void TimelineSettings::durationChanged() {
  const bool automatic = automatic_->isChecked();
  frames_->setEnabled(!automatic);
  timecode_->setText(tlview::timecode(automatic ? layersEnd_ : frames_->value(), fps_->value()));
}

void TimelineSettings::apply() {
  std::optional<std::vector<double>> background;
  if (const Timeline* t = model_.tl.find(id_)) background = t->background;
  if (backgroundChosen_) background = std::vector<double>{background_.redF(), background_.greenF(), background_.blueF()};
  model_.applyTimelineSettings(id_, name_->text().toStdString(), width_->value(), height_->value(), fps_->value(),
                               automatic_->isChecked() ? std::nullopt : std::optional<int>(frames_->value()),
                               std::move(background));
}

}  // namespace ombrik
