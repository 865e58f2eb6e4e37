// OpenColorIO display transforms in the viewer: a config written here is listed, its views colour
// the viewer's pixels exactly as OCIO's own CPU processor does (after the world's LUT when there
// is one), renders stay as they are, the choice is remembered, and a broken config only says so.
#include <OpenColorIO/OpenColorIO.h>
#include <gtest/gtest.h>

#include <fstream>

#include "../document/temp_model.h"
#include "../platform/temp_dir.h"
#include "ocio_config.h"
#include "color/ocio_display.h"
#include "document/app_model.h"
#include "engine/engine.h"
#include "engine/source_picture.h"
#include "platform/string_catalogue.h"

using namespace ombrik;
namespace OCIO = OCIO_NAMESPACE;

namespace {
// media (a 16 × 16 spread of colours over the whole cube) → output, on the CPU driver.
struct Desk {
  TempDir dir;
  std::shared_ptr<ManualScheduler> clock = std::make_shared<ManualScheduler>();
  std::unique_ptr<AppModel> m = std::make_unique<AppModel>(test::tempModelOptions(dir, clock));
  std::filesystem::path config = test::writeText(dir.path / "config.ocio", test::kOcioConfig);
  Uuid output;

  Desk() {
    EXPECT_TRUE(m->engine) << m->_status;
    std::vector<float> rgba;
    for (int y = 0; y < 16; ++y)
      for (int x = 0; x < 16; ++x) rgba.insert(rgba.end(), {x / 15.f, y / 15.f, float((7 * x + 3 * y) % 16) / 15.f, 1.f});
    const Uuid mediaID = Uuid::generate();
    m->engine->addSource(SourcePicture::fromFloats(16, 16, rgba), mediaID);
    MediaItem item;
    item.id = mediaID;
    item.width = item.height = 16;
    m->_media.push_back(item);
    output = m->_nodes.front().id;
    const Uuid media = m->addNode(NodeKind::media(), {0, 0});
    m->setMedia(media, mediaID);
    m->connect(media, output, 0, 0);
    m->select(output);
    render();
  }
  void render() {
    m->requestRender();
    clock->runAll();
  }
};
}  // namespace

// The viewer's pixels against OCIO's CPU processor on the same input values. Tolerance: two
// half-float roundings (the table's entries and the result, 2.4e-4 each below 1) and the 65-point
// grid's trilinear error on these smooth curves (under 2e-4).
TEST(OcioDisplay, TheConfigsViewsAreListedAndColourTheViewerAsOcioComputes) {
  Desk d;
  AppModel& m = *d.m;
  const auto rotation = d.dir.path / "rotation.cube";  // (r, g, b) → (g, b, r), exact when interpolated
  {
    std::ofstream out(rotation);
    out << "LUT_3D_SIZE 2\n";
    for (int b = 0; b < 2; ++b)
      for (int g = 0; g < 2; ++g)
        for (int r = 0; r < 2; ++r) out << g << ' ' << b << ' ' << r << '\n';
  }
  const Engine::Tex result = m.engine->outputs.at(d.output);
  const std::vector<float> plain = m.engine->readPixels(result);
  ASSERT_EQ(plain.size(), 16u * 16u * 4u);

  m.setOcioConfig(d.config);
  ASSERT_TRUE(m.ocio) << m._status;
  ASSERT_EQ(m.ocio->displays().size(), 1u);  // the config's display and views
  EXPECT_EQ(m.ocio->displays()[0].name, "Moniteur");
  EXPECT_EQ(m.ocio->displays()[0].views, (std::vector<std::string>{"Brut", "Film"}));
  EXPECT_EQ(m.ocio->inputSpace(), "raw");
  EXPECT_TRUE(m.ocio->offers({"Moniteur", "Film"}));
  EXPECT_FALSE(m.ocio->offers({"Moniteur", "Absent"}) || m.ocio->offers({"Film", "Moniteur"}));
  EXPECT_FALSE(m._ocioView) << "nothing applies until a view is chosen";
  const OCIO::ConstConfigRcPtr reference = OCIO::Config::CreateFromFile(d.config.c_str());

  struct Case {
    const char* view;
    bool worldLut;
  };
  for (const Case c : {Case{"Film", false}, Case{"Brut", false}, Case{"Film", true}}) {
    SCOPED_TRACE(std::string(c.view) + (c.worldLut ? " after the world's LUT" : ""));
    m.setWorldLUT(*m._currentBatchID, c.worldLut ? rotation.string() : "");
    m.setOcioView(OcioView{"Moniteur", c.view});
    EXPECT_EQ(m._status, std::string("Affichage OCIO : Moniteur / ") + c.view);
    EXPECT_EQ(translate(m._status, AppLanguage::english), std::string("OCIO display: Moniteur / ") + c.view);
    d.render();
    const AppModel::ViewerState shown = m.viewerPictures();
    ASSERT_TRUE(shown.main && shown.main != result);
    EXPECT_EQ(m.viewerPictures().main, shown.main) << "a redraw of the same evaluation reuses the pass";
    const std::vector<float> seen = m.engine->readPixels(shown.main);
    ASSERT_EQ(seen.size(), plain.size());
    const auto cpu = reference->getProcessor("raw", "Moniteur", c.view, OCIO::TRANSFORM_DIR_FORWARD)->getDefaultCPUProcessor();
    for (std::size_t i = 0; i < plain.size(); i += 4) {
      float px[3] = {plain[i], plain[i + 1], plain[i + 2]};
      if (c.worldLut) px[0] = plain[i + 1], px[1] = plain[i + 2], px[2] = plain[i];
      cpu->applyRGB(px);
      for (int k = 0; k < 3; ++k) ASSERT_NEAR(seen[i + k], px[k], 1e-3) << "pixel " << i / 4 << " channel " << k;
      EXPECT_EQ(seen[i + 3], plain[i + 3]);
    }
    EXPECT_EQ(m.engine->readPixels(result), plain) << "the graph's result keeps its colours";
    EXPECT_EQ(m.deliveredPicture(result), result) << "display transforms are for viewing only";
  }

  m.setOcioView(std::nullopt);
  EXPECT_EQ(m._status, "Affichage OCIO : Aucun");
  EXPECT_FALSE(m.viewerState().lut.has_value() && OcioDisplay::isKey(*m.viewerState().lut));

  // A new session on the same settings finds the last view chosen, while the config offers it.
  m.setOcioView(OcioView{"Moniteur", "Film"});
  AppModel again(test::tempModelOptions(d.dir, d.clock, false));
  again.setOcioConfig(d.config);
  EXPECT_EQ(again._ocioView, (OcioView{"Moniteur", "Film"}));
}

TEST(OcioDisplay, ABrokenConfigSaysSoAndLeavesTheViewerAlone) {
  Desk d;
  AppModel& m = *d.m;
  struct Case {
    const char* file;
    const char* text;  // nothing: the file doesn't exist
  };
  const Case cases[] = {
      {"absente.ocio", nullptr},
      {"yaml.ocio", "ocio_profile_version: 2\ncolorspaces: [ {name: raw\n"},
      {"version.ocio", "ocio_profile_version: 9\n"},
      // A view naming a colour space the config lacks: only validation finds it.
      {"vue.ocio", "ocio_profile_version: 2\nroles: {default: raw}\n"
                   "file_rules:\n  - !<Rule> {name: Default, colorspace: default}\n"
                   "displays:\n  Moniteur:\n    - !<View> {name: Film, colorspace: nulle_part}\n"
                   "colorspaces:\n  - !<ColorSpace> {name: raw}\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file);
    const auto path = c.text ? test::writeText(d.dir.path / c.file, c.text) : d.dir.path / c.file;
    const OcioDisplay ocio(path);
    EXPECT_FALSE(ocio.ok());
    EXPECT_TRUE(ocio.displays().empty());
    EXPECT_TRUE(ocio.error().starts_with(std::string("Configuration OCIO illisible : ") + c.file + " (")) << ocio.error();
    EXPECT_TRUE(translate(ocio.error(), AppLanguage::english).starts_with(std::string("Unreadable OCIO config: ") + c.file + " ("));

    m.setOcioConfig(d.config);
    m.setOcioView(OcioView{"Moniteur", "Film"});
    m.setOcioConfig(path);
    EXPECT_EQ(m._status, ocio.error());
    EXPECT_FALSE(m.ocio);
    EXPECT_FALSE(m._ocioView);
    m.setOcioView(OcioView{"Moniteur", "Film"});
    EXPECT_EQ(m._status, "Affichage OCIO introuvable : Moniteur / Film");
    d.render();
    EXPECT_FALSE(m.viewerState().lut);
    EXPECT_EQ(m.viewerPictures().main, m.engine->outputs.at(d.output)) << "the viewer shows the result as it is";
  }
  std::string why;
  EXPECT_FALSE(LUTLib::cached(OcioDisplay::key(d.dir.path / "absente.ocio", {"Moniteur", "Film"}), &why));
  EXPECT_TRUE(why.starts_with("Configuration OCIO illisible : absente.ocio (")) << why;
}
