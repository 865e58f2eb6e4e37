// The inspector: each parameter's control, its edits and undo, the slider's law and drags, the
// stopwatch's keys, which node it shows, and every kind fitting the panel of the default window.
#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QLabel>
#include <QScrollArea>
#include <QScrollBar>
#include <QSlider>
#include <QStyle>
#include <QStyleOptionSlider>
#include <QToolButton>
#include <cmath>

#include "platform/string_catalogue.h"
#include "shell/inspector_widget.h"
#include "shell/param_row.h"
#include "shell/slider_scale.h"
#include "shell_app.h"

using namespace ombrik;

namespace {

struct Bench : test::GraphDesk {
  QApplication& app = test::shellApp();
  AppModel& model = m;
  Uuid add(const KindRef& kind) {
    const Uuid id = model.addNode(kind, {0, 0});
    settle();  // committed: later edits are steps of their own
    return id;
  }
};

const ParamSpec& specOf(const KindRef& kind, const std::string& key) {
  const ParamSpec* spec = kind->param(key);
  EXPECT_NE(spec, nullptr) << key;
  return *spec;
}

}  // namespace

// Which ranges get the finer law for their small values, and where the slider's travel lands.
TEST(SliderScale, StepsOnTicksAndWideRangesGiveTheirSmallValuesMostOfTheTravel) {
  struct Case {
    const char* what;
    double min, max, step;
    const char* unit;
    bool wide;
    int ticks;
    int probeTick;
    double probeValue;
  };
  const Case cases[] = {
      {"blur size", 0, 2000, 1, " px", true, 1000, 500, 250},
      {"fine step on a wide range", 0, 4096, 0.01, "", true, 1000, 1000, 4096},
      {"exposure", -2, 2, 0.05, " stops", false, 80, 40, 0},
      {"hue: an angle", 0, 360, 1, "°", false, 360, 180, 180},
      {"swirl: below zero", -1080, 1080, 1, "°", false, 1000, 500, 0},
      {"coarse steps", 100, 3000, 100, "", false, 29, 10, 1100},
  };
  for (const Case& c : cases) {
    const SliderScale scale = SliderScale::of(c.min, c.max, c.step, c.unit);
    EXPECT_EQ(SliderScale::isWide(c.min, c.max, c.step, c.unit), c.wide) << c.what;
    EXPECT_EQ(scale.ticks, c.ticks) << c.what;
    EXPECT_NEAR(scale.value(c.probeTick), c.probeValue, 1e-9) << c.what;
    EXPECT_EQ(scale.value(0), c.min) << c.what;
    EXPECT_EQ(scale.value(scale.ticks), c.max) << c.what;
    EXPECT_EQ(scale.tick(c.max), scale.ticks) << c.what;
    double last = c.min;
    for (int t = 0; t <= scale.ticks; ++t) {
      const double v = scale.value(t);
      ASSERT_GE(v, last) << c.what << " never goes back, tick " << t;
      last = v;
      if (c.step > 0) {
        ASSERT_NEAR(std::remainder(v - c.min, c.step), 0, 1e-6) << c.what << " lands on steps";
      }
      ASSERT_NEAR(scale.value(scale.tick(v)), v, 1e-9) << c.what << ": a value shown is the slider's own";
    }
  }
  const SliderScale exposure = SliderScale::of(-2, 2, 0.05);
  EXPECT_EQ(exposure.tick(0.15), 43);
  EXPECT_EQ(exposure.tick(-5), 0) << "out of range is held at the ends";
  EXPECT_EQ(exposure.value(1000), 2);
  EXPECT_EQ(SliderScale::of(3, 3, 1).tick(3), 0) << "an empty range doesn't divide by zero";
  for (const auto& [step, decimals] : {std::pair(1.0, 0), {0.5, 1}, {0.05, 2}, {0.005, 3}, {1e-6, 4}})
    EXPECT_EQ(decimalsFor(step), decimals) << step;
}

// A number gets a field and a slider on the spec's range, a switch a box, a list a menu, each
// showing the default at once; edits through each are stored in the model and undone in one step.
TEST(ParamRow, EachKindOfParameterGetsItsControlAndEditsAreUndone) {
  Bench b;
  const Uuid color = b.add(NodeKind::color());
  ParamRow exposure(b.model, color, specOf(NodeKind::color(), "exposure"));
  auto* field = exposure.findChild<QDoubleSpinBox*>();
  ASSERT_TRUE(field && exposure.findChild<QSlider*>());
  EXPECT_EQ(std::tuple(field->suffix(), field->minimum(), field->maximum(), field->decimals()),
            std::tuple(QString(" stops"), -2.0, 2.0, 2));
  EXPECT_DOUBLE_EQ(field->value(), 0.15) << "the default shows at once";
  const KindRef& flipKind = *NodeKind::find("flip");
  ParamRow flop(b.model, b.add(flipKind), specOf(flipKind, "flop"));
  ASSERT_NE(flop.findChild<QCheckBox*>(), nullptr);
  EXPECT_EQ(flop.findChild<QSlider*>(), nullptr);
  EXPECT_TRUE(flop.findChild<QCheckBox*>()->isChecked());

  const KindRef& compKind = *NodeKind::find("comp");
  const Uuid comp = b.add(compKind);
  ParamRow opacity(b.model, comp, specOf(compKind, "opacity"));
  ParamRow mode(b.model, comp, specOf(compKind, "mode"));
  ParamRow invert(b.model, comp, specOf(compKind, "inv1"));
  auto* menu = mode.findChild<QComboBox*>();
  ASSERT_NE(menu, nullptr);
  EXPECT_EQ(std::size_t(menu->count()), specOf(compKind, "mode").options.value().size());
  EXPECT_EQ(menu->currentIndex(), 0);
  auto* slider = opacity.findChild<QSlider*>();
  QTest::keyClick(slider, Qt::Key_Home);  // the slider's own keys, as a hand would use them
  EXPECT_DOUBLE_EQ(b.model.nodeByID(comp)->params.at("opacity"), 0);
  EXPECT_DOUBLE_EQ(opacity.findChild<QDoubleSpinBox*>()->value(), 0) << "the field follows the slider";
  opacity.findChild<QDoubleSpinBox*>()->setValue(0.37);
  EXPECT_DOUBLE_EQ(b.model.nodeByID(comp)->params.at("opacity"), 0.37);
  EXPECT_EQ(slider->value(), SliderScale::of(0, 1, 0.01).tick(0.37)) << "the slider follows the field";
  menu->setCurrentIndex(3);
  EXPECT_DOUBLE_EQ(b.model.nodeByID(comp)->params.at("mode"), 3);
  invert.findChild<QCheckBox*>()->click();
  EXPECT_DOUBLE_EQ(b.model.nodeByID(comp)->params.at("inv1"), 1);

  b.model.undo();
  for (const auto& [key, value] : {std::pair("opacity", 1.0), {"mode", 0.0}, {"inv1", 0.0}})
    EXPECT_DOUBLE_EQ(b.model.nodeByID(comp)->params.at(key), value) << key;
  for (ParamRow* r : {&opacity, &mode, &invert}) r->refresh();
  EXPECT_EQ(slider->value(), slider->maximum());
  EXPECT_EQ(menu->currentIndex(), 0);
  EXPECT_FALSE(invert.findChild<QCheckBox*>()->isChecked());
}

namespace {
QPoint handleCentre(QSlider* slider) {
  QStyleOptionSlider option;
  option.initFrom(slider);
  option.orientation = slider->orientation();
  option.minimum = slider->minimum();
  option.maximum = slider->maximum();
  option.sliderPosition = slider->sliderPosition();
  option.sliderValue = slider->value();
  option.subControls = QStyle::SC_All;
  return slider->style()->subControlRect(QStyle::CC_Slider, &option, QStyle::SC_SliderHandle, slider).center();
}

// The pointer on a slider as a hand moves it, modifiers included (QTest's moves carry none).
void pointer(QSlider* slider, QEvent::Type type, QPoint at, Qt::KeyboardModifiers keys = {}) {
  const Qt::MouseButtons held = type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::LeftButton;
  const Qt::MouseButton button = type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton;
  QMouseEvent event(type, QPointF(at), QPointF(slider->mapToGlobal(at)), button, held, keys);
  QApplication::sendEvent(slider, &event);
}

// A blur's size row, shown at the width the panel gives it.
struct BlurRow {
  Bench bench;
  const KindRef& kind = *NodeKind::find("blur");
  Uuid id = bench.add(kind);
  ParamRow row{bench.model, id, specOf(kind, "size")};
  QSlider* slider = row.findChild<QSlider*>();
  BlurRow() {
    row.resize(340, 30);
    row.show();
    QCoreApplication::processEvents();
  }
  double size() const { return bench.model.nodeByID(id)->params.at("size"); }
};
}  // namespace

// However long a drag pauses (longer than the history waits before taking a step), it is one
// undo step. With Shift held, the same travel moves the handle a tenth as far; letting Shift go
// carries on from where the handle is, without a jump.
TEST(ParamRow, ASliderDragIsOneUndoStepAndShiftDragsFinely) {
  BlurRow b;
  ASSERT_NE(b.slider, nullptr);
  const double before = b.size();
  const std::size_t steps = b.bench.model.history.undo.size();
  const QPoint start = handleCentre(b.slider);
  const int from = b.slider->sliderPosition();
  pointer(b.slider, QEvent::MouseButtonPress, start);
  ASSERT_TRUE(b.slider->isSliderDown()) << "pressed on the handle";
  for (int dx : {10, 25, 40}) {
    pointer(b.slider, QEvent::MouseMove, start + QPoint(dx, 0));
    b.bench.clock->advance(0.5);
  }
  const int plain = b.slider->sliderPosition() - from;
  pointer(b.slider, QEvent::MouseButtonRelease, start + QPoint(40, 0));
  b.bench.clock->advance(1);
  EXPECT_GT(b.size(), before);
  const double linear = 2000.0 * b.slider->value() / b.slider->maximum();
  EXPECT_LT(b.size(), linear / 2) << "the same travel on an even slider would reach " << linear;
  EXPECT_EQ(b.bench.model.history.undo.size(), steps + 1);
  b.bench.model.undo();
  EXPECT_EQ(b.size(), before);

  BlurRow f;
  ASSERT_EQ(f.slider->sliderPosition(), from);
  pointer(f.slider, QEvent::MouseButtonPress, start);
  pointer(f.slider, QEvent::MouseMove, start + QPoint(40, 0), Qt::ShiftModifier);
  const int fine = f.slider->sliderPosition() - from;
  EXPECT_NEAR(fine, plain * ParamRow::kFineDrag, 2) << "plain " << plain << ", fine " << fine;
  EXPECT_GT(fine, 0);
  pointer(f.slider, QEvent::MouseMove, start + QPoint(41, 0));
  EXPECT_NEAR(f.slider->sliderPosition() - from, fine, 12) << "Shift let go: no jump under the pointer";
  pointer(f.slider, QEvent::MouseButtonRelease, start + QPoint(41, 0));
  EXPECT_DOUBLE_EQ(f.size(), SliderScale::of(0, 2000, 1, " px").value(f.slider->value()));
}

TEST(ParamRow, StopwatchAnimatesAndKeysFollowTheTime) {
  Bench b;
  const Uuid color = b.add(NodeKind::color());
  ParamRow row(b.model, color, specOf(NodeKind::color(), "exposure"));
  auto* watch = row.findChild<QToolButton*>("stopwatch");
  auto* toggle = row.findChild<QToolButton*>("toggleKey");
  auto* previous = row.findChild<QToolButton*>("previousKey");
  ASSERT_TRUE(watch && toggle && previous);
  EXPECT_TRUE(toggle->isHidden()) << "a constant parameter shows the stopwatch alone";

  QTest::mouseClick(watch, Qt::LeftButton);
  const auto& anim = b.model.nodeByID(color)->anim;
  ASSERT_EQ(anim.count("exposure"), 1u);
  EXPECT_EQ(anim.at("exposure").size(), 1u);
  EXPECT_FALSE(toggle->isHidden());
  EXPECT_EQ(toggle->text(), "◆") << "a key stands at this frame";

  // At frame 20 a new value is a new key; the key mark is hollow until then.
  b.model.seekFrame(20);
  row.refresh();
  EXPECT_EQ(toggle->text(), "◇");
  row.findChild<QDoubleSpinBox*>()->setValue(1.5);
  ASSERT_EQ(b.model.nodeByID(color)->anim.at("exposure").size(), 2u);
  EXPECT_EQ(b.model.nodeByID(color)->anim.at("exposure").back().f, 20);
  EXPECT_EQ(toggle->text(), "◆");

  // Back at frame 0 the row shows the value of the curve there, not the last one typed.
  QTest::mouseClick(previous, Qt::LeftButton);
  EXPECT_EQ(b.model._currentFrame, 0);
  row.refresh();
  EXPECT_DOUBLE_EQ(row.findChild<QDoubleSpinBox*>()->value(), 0.15);

  // Removing the key at frame 20, then the stopwatch: the parameter is constant again.
  b.model.seekFrame(20);
  QTest::mouseClick(toggle, Qt::LeftButton);
  EXPECT_EQ(b.model.nodeByID(color)->anim.at("exposure").size(), 1u);
  QTest::mouseClick(watch, Qt::LeftButton);
  EXPECT_EQ(b.model.nodeByID(color)->anim.count("exposure"), 0u);
  EXPECT_TRUE(toggle->isHidden());
}

TEST(InspectorWidget, ShowsTheLockedElseTheInspectedElseTheSelectedNodeAndBypassesIt) {
  Bench b;
  const Uuid color = b.add(NodeKind::color());
  const Uuid flip = b.add(*NodeKind::find("flip"));
  InspectorWidget inspector(b.model);

  b.model.select(color);
  inspector.refresh();
  EXPECT_EQ(inspector.shownNode(), color);
  ParamRow* exposure = inspector.row("exposure");
  ASSERT_NE(exposure, nullptr);
  EXPECT_EQ(inspector.row("flop"), nullptr);
  inspector.refresh();
  EXPECT_EQ(inspector.row("exposure"), exposure) << "nothing changed: the rows stay";

  // A value changed elsewhere (the model, a script) reaches the row on refresh.
  b.model.binding(color, "exposure").set(-1.25);
  inspector.refresh();
  EXPECT_DOUBLE_EQ(exposure->findChild<QDoubleSpinBox*>()->value(), -1.25);

  b.model.inspectedID = flip;  // the inspected node wins over the selection
  inspector.refresh();
  EXPECT_EQ(inspector.shownNode(), flip);
  EXPECT_NE(inspector.row("flop"), nullptr);
  EXPECT_EQ(inspector.row("exposure"), nullptr);

  // A lock wins over the inspected and selected node; the header's box bypasses the node shown.
  auto* lock = inspector.findChild<QToolButton*>("inspectorLock");
  auto* bypass = inspector.findChild<QCheckBox*>("inspectorBypass");
  ASSERT_TRUE(lock && bypass);
  b.model.toggleInspectorLock(color);
  b.model.select(flip);
  b.model.inspectedID = flip;
  inspector.refresh();
  EXPECT_EQ(inspector.shownNode(), color) << "the lock wins over the inspected and selected node";
  EXPECT_FALSE(lock->isHidden());

  bypass->click();
  EXPECT_TRUE(b.model.nodeByID(color)->bypass);
  b.model.undo();
  inspector.refresh();
  EXPECT_FALSE(bypass->isChecked()) << "the box follows the node";

  QTest::mouseClick(lock, Qt::LeftButton);
  EXPECT_FALSE(b.model.inspectorLock);
  EXPECT_EQ(inspector.shownNode(), flip);
  EXPECT_TRUE(lock->isHidden());
  EXPECT_FALSE(bypass->isChecked());

  b.model.toggleInspectorLock(color);
  b.model.deleteNode(color);
  inspector.refresh();
  EXPECT_EQ(inspector.shownNode(), flip) << "a lock on a node that is gone holds nothing";

  b.model.inspectedID.reset();
  b.model.select(std::nullopt);
  inspector.refresh();
  EXPECT_FALSE(inspector.shownNode());
  EXPECT_EQ(inspector.row("exposure"), nullptr);
}

namespace {
// What of the inspector a person can't read at once: a horizontal scrollbar, or a text cut by
// its widget (a wrapped label shorter than its lines, a one-line text narrower than itself).
std::vector<std::string> unreadable(InspectorWidget& inspector) {
  std::vector<std::string> found;
  for (auto* scroll : inspector.findChildren<QScrollArea*>())
    if (scroll->horizontalScrollBar()->isVisible()) found.push_back("horizontal scrollbar");
  for (auto* label : inspector.findChildren<QLabel*>()) {
    if (!label->isVisible() || label->text().isEmpty()) continue;
    const bool cut = label->wordWrap() ? label->height() < label->heightForWidth(label->width())
                                       : label->width() < label->sizeHint().width();
    if (cut) found.push_back("cut label: " + label->text().toStdString());
  }
  for (auto* button : inspector.findChildren<QAbstractButton*>()) {
    if (!button->isVisible() || button->text().isEmpty() || qobject_cast<QToolButton*>(button)) continue;
    if (button->width() < button->sizeHint().width()) found.push_back("cut button: " + button->text().toStdString());
  }
  return found;
}
}  // namespace

// Every kind's settings fit the panel of the window at its default size, in both languages:
// nothing to scroll sideways to, no text cut, even with every row animated and so showing its
// key buttons.
TEST(InspectorWidget, EveryKindFitsThePanelAtTheDefaultWindowSize) {
  test::shellApp();
  const AppLanguage before = interfaceLanguage();
  for (const AppLanguage language : {AppLanguage::french, AppLanguage::english}) {
    setInterfaceLanguage(language);
    auto clock = std::make_shared<ManualScheduler>();
    AppModel model(AppModel::Options{.blankStart = true, .withEngine = false, .scheduler = clock});
    MainWindow window(model);
    window.show();  // at its default size
    std::vector<KindRef> kinds = NodeKind::all();
    kinds.insert(kinds.begin(), KindRef());  // first the empty panel, with no node selected
    for (const KindRef& kind : kinds) {
      const std::string name = (language == AppLanguage::french ? "fr " : "en ") + (kind ? kind->id : "(none)");
      std::optional<Uuid> id;
      if (kind) {
        id = model.addNode(kind, {0, 0});
        model.select(*id);
        if (kind->id == "mask") model.newMask(*id);  // its tabs too
        for (const ParamSpec& spec : kind->params) model.toggleAnim(*id, spec.key);
      }
      window.refresh();
      for (int i = 0; i < 3; ++i) QCoreApplication::processEvents();  // the rows' layout, then the scroll area's
      EXPECT_EQ(window.inspector()->shownNode(), id) << name;
      for (const std::string& what : unreadable(*window.inspector())) ADD_FAILURE() << name << ": " << what;
      if (id) model.deleteNode(*id);
    }
  }
  setInterfaceLanguage(before);
}
