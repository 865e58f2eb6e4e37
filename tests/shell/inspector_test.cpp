// The inspector: the control each kind of parameter gets, edits stored through the model (and
// so undone), keys set from the stopwatch, and rows rebuilt only when the node changes.
#include <gtest/gtest.h>

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QLabel>
#include <QSlider>
#include <QTest>
#include <QToolButton>

#include "document/app_model.h"
#include "platform/scheduler.h"
#include "shell/inspector_widget.h"
#include "shell/param_row.h"
#include "shell/slider_scale.h"
#include "shell_app.h"

using namespace ombrik;

namespace {

struct Bench {
  std::shared_ptr<ManualScheduler> clock = std::make_shared<ManualScheduler>();
  AppModel model{AppModel::Options{.blankStart = true, .withEngine = false, .scheduler = clock}};
  Bench() { test::shellApp(); }
  Uuid add(const KindRef& kind) {
    const Uuid id = model.addNode(kind, {0, 0});
    clock->advance(1);  // committed: later edits are steps of their own
    return id;
  }
};

const ParamSpec& specOf(const KindRef& kind, const std::string& key) {
  const ParamSpec* spec = kind->param(key);
  EXPECT_NE(spec, nullptr) << key;
  return *spec;
}

}  // namespace

TEST(SliderScale, StepsOnTicksAndBack) {
  const SliderScale exposure = SliderScale::of(-2, 2, 0.05);
  EXPECT_EQ(exposure.ticks, 80);
  EXPECT_EQ(exposure.tick(0.15), 43);
  EXPECT_NEAR(exposure.value(43), 0.15, 1e-12);
  EXPECT_EQ(exposure.tick(-5), 0) << "out of range is held at the ends";
  EXPECT_EQ(exposure.tick(5), 80);
  EXPECT_EQ(exposure.value(1000), 2);
  EXPECT_EQ(SliderScale::of(0, 4096, 0.01).ticks, SliderScale::kMaxTicks) << "a fine step on a wide range";
  EXPECT_EQ(SliderScale::of(3, 3, 1).tick(3), 0) << "an empty range doesn't divide by zero";

  EXPECT_EQ(decimalsFor(1), 0);
  EXPECT_EQ(decimalsFor(0.5), 1);
  EXPECT_EQ(decimalsFor(0.05), 2);
  EXPECT_EQ(decimalsFor(0.005), 3);
  EXPECT_EQ(decimalsFor(1e-6), 4);
}

TEST(ParamRow, EachKindOfParameterGetsItsControl) {
  Bench b;
  const Uuid color = b.add(NodeKind::color());
  ParamRow exposure(b.model, color, specOf(NodeKind::color(), "exposure"));
  auto* field = exposure.findChild<QDoubleSpinBox*>();
  ASSERT_NE(field, nullptr);
  ASSERT_NE(exposure.findChild<QSlider*>(), nullptr);
  EXPECT_EQ(field->suffix(), " stops");
  EXPECT_EQ(field->minimum(), -2);
  EXPECT_EQ(field->maximum(), 2);
  EXPECT_EQ(field->decimals(), 2);
  EXPECT_DOUBLE_EQ(field->value(), 0.15) << "the default shows at once";
  EXPECT_EQ(exposure.findChild<QLabel*>()->text(), "Exposition");

  const KindRef& flipKind = *NodeKind::find("flip");
  const Uuid flip = b.add(flipKind);
  ParamRow flop(b.model, flip, specOf(flipKind, "flop"));
  auto* box = flop.findChild<QCheckBox*>();
  ASSERT_NE(box, nullptr);
  EXPECT_EQ(flop.findChild<QSlider*>(), nullptr);
  EXPECT_TRUE(box->isChecked());

  const KindRef& compKind = *NodeKind::find("comp");
  const Uuid comp = b.add(compKind);
  ParamRow mode(b.model, comp, specOf(compKind, "mode"));
  auto* menu = mode.findChild<QComboBox*>();
  ASSERT_NE(menu, nullptr);
  EXPECT_EQ(menu->count(), 10);
  EXPECT_EQ(menu->itemText(0), "Normal");
  EXPECT_EQ(menu->currentIndex(), 0);
}

TEST(ParamRow, EditsAreStoredThroughTheModelAndUndone) {
  Bench b;
  const KindRef& compKind = *NodeKind::find("comp");
  const Uuid comp = b.add(compKind);
  ParamRow opacity(b.model, comp, specOf(compKind, "opacity"));
  ParamRow mode(b.model, comp, specOf(compKind, "mode"));
  ParamRow invert(b.model, comp, specOf(compKind, "inv1"));

  auto* slider = opacity.findChild<QSlider*>();
  QTest::keyClick(slider, Qt::Key_Home);  // the slider's own keys, as a hand would use them
  EXPECT_DOUBLE_EQ(b.model.nodeByID(comp)->params.at("opacity"), 0);
  EXPECT_DOUBLE_EQ(opacity.findChild<QDoubleSpinBox*>()->value(), 0) << "the field follows the slider";
  opacity.findChild<QDoubleSpinBox*>()->setValue(0.37);
  EXPECT_DOUBLE_EQ(b.model.nodeByID(comp)->params.at("opacity"), 0.37);
  EXPECT_EQ(slider->value(), SliderScale::of(0, 1, 0.01).tick(0.37)) << "the slider follows the field";
  mode.findChild<QComboBox*>()->setCurrentIndex(3);
  EXPECT_DOUBLE_EQ(b.model.nodeByID(comp)->params.at("mode"), 3);
  invert.findChild<QCheckBox*>()->click();
  EXPECT_DOUBLE_EQ(b.model.nodeByID(comp)->params.at("inv1"), 1);

  b.model.undo();
  EXPECT_DOUBLE_EQ(b.model.nodeByID(comp)->params.at("opacity"), 1);
  EXPECT_DOUBLE_EQ(b.model.nodeByID(comp)->params.at("mode"), 0);
  EXPECT_DOUBLE_EQ(b.model.nodeByID(comp)->params.at("inv1"), 0);
  for (ParamRow* r : {&opacity, &mode, &invert}) r->refresh();
  EXPECT_EQ(slider->value(), slider->maximum());
  EXPECT_EQ(mode.findChild<QComboBox*>()->currentIndex(), 0);
  EXPECT_FALSE(invert.findChild<QCheckBox*>()->isChecked());
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

TEST(InspectorWidget, ShowsTheInspectedElseTheSelectedNode) {
  Bench b;
  const Uuid color = b.add(NodeKind::color());
  const Uuid flip = b.add(*NodeKind::find("flip"));
  InspectorWidget inspector(b.model);
  auto* title = inspector.findChild<QLabel*>("inspectorTitle");

  b.model.select(color);
  inspector.refresh();
  EXPECT_EQ(inspector.shownNode(), color);
  EXPECT_EQ(title->text(), "Réglage couleur");
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

  b.model.inspectedID.reset();
  b.model.deleteNode(color);
  inspector.refresh();
  EXPECT_FALSE(inspector.shownNode());
  EXPECT_EQ(inspector.row("exposure"), nullptr);
  EXPECT_EQ(title->text(), "Sélectionnez un node pour voir ses réglages.");
}

TEST(InspectorWidget, ALockHoldsTheNodeAndTheHeaderBypassesIt) {
  Bench b;
  const Uuid color = b.add(NodeKind::color());
  const Uuid flip = b.add(*NodeKind::find("flip"));
  InspectorWidget inspector(b.model);
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
  b.model.setBypass(color, true);
  inspector.refresh();
  EXPECT_TRUE(bypass->isChecked());

  QTest::mouseClick(lock, Qt::LeftButton);
  EXPECT_FALSE(b.model.inspectorLock);
  EXPECT_EQ(inspector.shownNode(), flip);
  EXPECT_TRUE(lock->isHidden());
  EXPECT_FALSE(bypass->isChecked());

  b.model.toggleInspectorLock(color);
  b.model.deleteNode(color);
  inspector.refresh();
  EXPECT_EQ(inspector.shownNode(), flip) << "a lock on a node that is gone holds nothing";
}
