// Tables applied on the GPU (the viewer's pass and its memo) and on the CPU (thumbnails).
#include <cmath>

#include "../engine/engine_fixture.h"
#include "../platform/temp_dir.h"
#include "color/lut_lib.h"
#include "color/lut_tables.h"
#include "lut_files.h"

using namespace ombrik;
using namespace ombrik::test;

namespace {

// The curves as their makers define them, encoded value to linear light.
double decodeRef(const std::string& id, double x) {
  using std::pow;
  if (id == "logc3")
    return x > 0.149657834105 ? (pow(10, (x - 0.385537) / 0.24719) - 0.052272) / 5.555556 : (x - 0.092809) / 5.367655;
  if (id == "logc4")
    return x >= 0 ? (pow(2, 14 * (x - 0.09286412512218964) / 0.9071358748778103 + 6) - 64) / 2231.8263090676883
                  : 0.1135972086105891 * x - 0.01805699611991131;
  if (id == "slog3")
    return x >= 0.16736099187966763 ? 0.19 * pow(10, (1023 * x - 420) / 261.5) - 0.01
                                    : (1023 * x - 95) * 0.01125 / 76.21029469289999;
  if (id == "clog3")
    return x < 0.097465473  ? -0.9 * (pow(10, (0.12783901 - x) / 0.36726845) - 1) / 14.98325
           : x <= 0.15277891 ? 0.9 * (x - 0.12512219) / 1.9754798
                             : 0.9 * (pow(10, (x - 0.12240537) / 0.36726845) - 1) / 14.98325;
  if (id == "vlog") return x < 0.181 ? (x - 0.125) / 5.6 : pow(10, (x - 0.598206) / 0.241514) - 0.00873;
  if (id == "log3g10") return x < 0 ? x / 15.1927 - 0.01 : (pow(10, x / 0.224282) - 1) / 155.975327 - 0.01;
  if (id == "bmdfilm")
    return x < 0.13388378308 ? (x - 0.09246575342) / 8.283605932
                             : std::exp((x - 0.5300133392) / 0.08692876065) - 0.005494072432;
  if (id == "applelog")
    return x >= 0.20855531595464202 ? pow(2, (x - 0.69336945) / 0.08550479) - 0.00964052
           : x >= 0                 ? std::sqrt(x / 47.28711236) - 0.05641088
                                    : -0.05641088;
  return x;
}

// Which gamut matrix row goes with which curve.
const std::array<double, 9>& matrixRef(const std::string& id) {
  const int row = id == "logc3" ? 0 : id == "slog3" ? 1 : id == "vlog" ? 2 : 3;
  return lut_tables::kMatrices[row].m;
}

double displayRef(double linear) {
  const double x = 0.6 * std::max(linear, 0.0);
  const double y = std::min(1.0, std::max(0.0, x * (2.51 * x + 0.03) / (x * (2.43 * x + 0.59) + 0.14)));
  return std::pow(y, 0.4166666666666667);
}

Rgb genericRef(const std::string& id, const Rgb& in) {
  const auto& m = matrixRef(id);
  const Rgb lin{decodeRef(id, in[0]), decodeRef(id, in[1]), decodeRef(id, in[2])};
  Rgb out;
  for (int c = 0; c < 3; ++c) out[c] = displayRef(m[3 * c] * lin[0] + m[3 * c + 1] * lin[1] + m[3 * c + 2] * lin[2]);
  return out;
}

class LutEngineTest : public EngineTest {
protected:
  // One row of pixels, alpha 1.
  static Engine::Tex row(const std::vector<Rgb>& colours, Engine::Tex into = nullptr) {
    Engine& e = engine();
    if (!into) into = e.device().createTexture(int(colours.size()), 1, gpu::Format::rgba16Float);
    std::vector<std::uint16_t> halves;
    for (const Rgb& c : colours)
      for (double v : {c[0], c[1], c[2], 1.0}) halves.push_back(floatToHalf(float(v)));
    EXPECT_TRUE(e.device().write(into, halves.data(), halves.size() * 2));
    return into;
  }
  static void expectRow(const Engine::Tex& t, const std::vector<Rgb>& want, double tolerance, const std::string& what) {
    const auto px = engine().readPixels(t);
    ASSERT_EQ(px.size(), want.size() * 4) << what;
    for (std::size_t i = 0; i < want.size(); ++i) {
      for (int c = 0; c < 3; ++c) EXPECT_NEAR(px[4 * i + c], want[i][c], tolerance) << what << " pixel " << i << " channel " << c;
      EXPECT_EQ(px[4 * i + 3], 1.0f) << what;
    }
  }
};

}  // namespace

TEST_F(LutEngineTest, GenericCurvesDecodeConvertToneMapAndEncodeMidGreyAlike) {
  // Inputs on the 33 grid's values (k / 32), channels apart so the matrix's mixing shows.
  const int grid[][3] = {{0, 0, 0}, {32, 32, 32}, {12, 12, 12}, {5, 17, 29}, {29, 9, 20}, {16, 30, 3}, {2, 24, 11}, {4, 7, 1}};
  std::vector<Rgb> in;
  for (const auto& k : grid) in.push_back({k[0] / 32.0, k[1] / 32.0, k[2] / 32.0});
  const Engine::Tex src = row(in);
  int stamp = 0;
  for (const auto& g : LUTLib::generics()) {
    std::vector<Rgb> want;
    for (const Rgb& v : in) want.push_back(genericRef(g.id, v));
    // Two half-float roundings (the cube, the result).
    expectRow(engine().applyLUT(src, "auto:" + g.id, ++stamp, 0), want, 2e-3, g.id);
  }
  // The code value of 18 % grey in each encoding, between the grid's values: after decoding, a
  // grey-preserving matrix and the tone curve, every camera's grey looks the same.
  const std::pair<const char*, double> greys[] = {{"logc3", 0.391007}, {"logc4", 0.278396}, {"slog3", 420.0 / 1023},
                                                  {"clog3", 0.343389}, {"vlog", 0.423311},  {"log3g10", 1.0 / 3},
                                                  {"bmdfilm", 0.383562}, {"applelog", 0.488271}};
  const double grey = displayRef(0.18);
  for (const auto& [id, code] : greys)
    expectRow(engine().applyLUT(row({{code, code, code}}), std::string("auto:") + id, ++stamp, 0), {{grey, grey, grey}}, 6e-3, id);
}

TEST(LutGeneric, TablesOfAnySizeHoldTheFormulaAtEveryEntry) {
  // 21 entries a side put grid values inside every segment of every curve (0.1 and 0.15 fall in
  // Canon Log 3's linear middle).
  for (const auto& g : LUTLib::generics())
    for (int n : {2, 21})
      expectTable(LUTLib::generic(g.id, n), n, [&](double r, double gr, double b) { return genericRef(g.id, {r, gr, b}); }, 2e-6,
                  g.id + " n " + std::to_string(n));
}

TEST_F(LutEngineTest, CubeFilesAreTrilinearOnTheGpu) {
  TempDir dir;
  const std::string ident = writeText(dir.path / "identity.cube", cubeText(2, [](double r, double g, double b) {
                              return Rgb{r, g, b};
                            })).string();
  const std::string bent = writeText(dir.path / "multilinear.cube", cubeText(3, multilinear)).string();
  const std::vector<Rgb> in = {{0.3, 0.55, 0.8}, {0.1, 0.9, 0.45}, {0.77, 0.23, 0.05}, {0.5, 0.5, 0.5},
                               {0, 1, 0.25},     {1, 0, 1}};
  const Engine::Tex src = row(in);
  expectRow(engine().applyLUT(src, ident, 1, 0), in, 2e-3, "identity");
  std::vector<Rgb> want;
  for (const Rgb& v : in) want.push_back(multilinear(v[0], v[1], v[2]));
  expectRow(engine().applyLUT(src, bent, 1, 0), want, 3e-3, "multilinear");
  // Outside 0..1 each channel is clamped before the lookup.
  const Engine::Tex outside = row({{-0.2, 1.3, 0.5}, {2, -1, 0.6}});
  expectRow(engine().applyLUT(outside, bent, 1, 0), {multilinear(0, 1, 0.5), multilinear(1, 0, 0.6)}, 3e-3, "clamped");
}

TEST_F(LutEngineTest, TheMemoSkipsTheSamePassAndEachSlotKeepsItsOwn) {
  Engine& e = engine();
  const std::string key = "auto:slog3", other = "auto:vlog";
  const auto table = LUTLib::cached(key);
  ASSERT_TRUE(table);
  const auto lut = [&](const std::string& k, double v) {
    const auto c = LUTLib::cached(k)->lookup(float(v), float(v), float(v));
    return Rgb{c[0], c[1], c[2]};
  };
  const Engine::Tex src = row({{0.2, 0.2, 0.2}});
  const Engine::Tex first = e.applyLUT(src, key, 7, 0);
  ASSERT_NE(first, src);
  expectRow(first, {lut(key, 0.2)}, 2e-3, "first pass");

  // New pixels in the same texture: the same stamp shows the pass already made, a new one reruns.
  row({{0.7, 0.7, 0.7}}, src);
  EXPECT_EQ(e.applyLUT(src, key, 7, 0), first);
  expectRow(first, {lut(key, 0.2)}, 2e-3, "same stamp: no pass");
  EXPECT_EQ(e.applyLUT(src, key, 8, 0), first) << "a result of the same size is drawn into again";
  expectRow(first, {lut(key, 0.7)}, 2e-3, "new stamp");

  // Slot 1 has its own result: slot 0's stays as it was.
  const Engine::Tex src2 = row({{0.4, 0.4, 0.4}});
  const Engine::Tex second = e.applyLUT(src2, key, 8, 1);
  EXPECT_NE(second, first);
  expectRow(second, {lut(key, 0.4)}, 2e-3, "slot 1");
  expectRow(first, {lut(key, 0.7)}, 2e-3, "slot 0 untouched by slot 1");
  EXPECT_EQ(e.applyLUT(src, key, 8, 0), first);
  expectRow(first, {lut(key, 0.7)}, 2e-3, "slot 0 memo kept");

  // Another key or another source of the same stamp runs the pass.
  expectRow(e.applyLUT(src, other, 8, 0), {lut(other, 0.7)}, 2e-3, "other key");
  expectRow(e.applyLUT(src2, other, 8, 0), {lut(other, 0.4)}, 2e-3, "other source");

  // No table: the picture as it is; cubes are made once per key.
  EXPECT_EQ(e.applyLUT(src, "/no/such/look.cube", 9, 0), src);
  EXPECT_FALSE(e.lutTexture("/no/such/look.cube"));
  const Engine::Tex cube = e.lutTexture(key);
  ASSERT_TRUE(cube);
  EXPECT_TRUE(cube->is3D());
  EXPECT_EQ(cube->depth(), LUTLib::kGenericSize);
  EXPECT_EQ(e.lutTexture(key), cube);
}

TEST(LutThumbnail, CpuPathAppliesTheTableToUnpremultipliedColour) {
  TempDir dir;
  const std::string bent = writeText(dir.path / "m.cube", cubeText(3, multilinear)).string();
  // Opaque pixels, and one at half alpha holding premultiplied colour.
  const std::vector<std::array<int, 4>> px = {{77, 140, 204, 255}, {0, 255, 64, 255}, {128, 128, 128, 255}, {40, 90, 20, 128}};
  auto bytes = std::make_shared<std::vector<std::uint8_t>>();
  for (const auto& p : px) bytes->insert(bytes->end(), p.begin(), p.end());
  const Picture in{2, 2, bytes};
  const Picture out = LUTLib::apply(in, bent);
  ASSERT_EQ(out.width, 2);
  ASSERT_EQ(out.rgba->size(), 16u);
  for (std::size_t i = 0; i < px.size(); ++i) {
    const double a = px[i][3] / 255.0;
    const Rgb want = multilinear(px[i][0] / 255.0 / a, px[i][1] / 255.0 / a, px[i][2] / 255.0 / a);
    for (int c = 0; c < 3; ++c) EXPECT_NEAR((*out.rgba)[4 * i + c], want[c] * a * 255, 1.0) << "pixel " << i << " channel " << c;
    EXPECT_EQ((*out.rgba)[4 * i + 3], px[i][3]);
  }
  for (const std::optional<std::string>& none : {std::optional<std::string>(), std::optional<std::string>(""),
                                                 std::optional<std::string>((dir.path / "none.cube").string())})
    EXPECT_EQ(LUTLib::apply(in, none).rgba, in.rgba) << none.value_or("(none)");
}
