#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "../platform/temp_dir.h"
#include "color/lut_lib.h"
#include "lut_files.h"

using namespace ombrik;
using namespace ombrik::test;

namespace {

Rgb identity(double r, double g, double b) { return {r, g, b}; }

}  // namespace

TEST(CubeFile, WrittenFormsReadAsTheSameTable) {
  TempDir dir;
  const std::string data = "0 0 0\n1 0 0\n0 1 0\n1 1 0\n0 0 1\n1 0 1\n0 1 1\n1 1 1\n";
  auto replaced = [](std::string s, const std::string& from, const std::string& to) {
    for (std::size_t at = 0; (at = s.find(from, at)) != std::string::npos; at += to.size()) s.replace(at, from.size(), to);
    return s;
  };
  const struct {
    const char* name;
    std::string text;
  } cases[] = {
      {"plain", "LUT_3D_SIZE 2\n" + data},
      {"lower-case keyword, comments, title, domain", "# made by hand\nTITLE \"x\"\nlut_3d_size 2\nDOMAIN_MIN 0 0 0\n"
                                                      "DOMAIN_MAX 2 2 2\n\n  # indented comment\n" + data},
      {"windows line ends", replaced("LUT_3D_SIZE 2\n" + data, "\n", "\r\n")},
      {"old mac line ends, no final end", replaced("LUT_3D_SIZE\t2\n" + data.substr(0, data.size() - 1), "\n", "\r")},
      {"tabs and a fourth number", "LUT_3D_SIZE 2\n" + replaced(replaced(data, " ", "\t"), "\n", "\t9\n")},
      {"byte order mark, signs, exponents",
       "\xEF\xBB\xBFLUT_3D_SIZE +2\n+0 0.0 0e0\n1E0 -0 +0\n0 10e-1 0\n1 1 0\n0 0 .1e1\n1 0 1\n0 1 1\n1 1 1\n"},
      {"size after the data, blank-padded lines", data + "   LUT_3D_SIZE   2   \n"},
  };
  for (const auto& c : cases) {
    std::string error;
    const auto t = LUTLib::parseCube(writeText(dir.path / "a.cube", c.text), &error);
    ASSERT_TRUE(t) << c.name << ": " << error;
    expectTable(*t, 2, identity, 0, c.name);
  }
}

TEST(CubeFile, BrokenFilesAreRefusedWithTheirReason) {
  TempDir dir;
  const std::string cube33 = cubeText(33, identity);
  const std::string missingLast = cube33.substr(0, cube33.rfind('\n', cube33.size() - 2) + 1);
  std::filesystem::create_directories(dir.path / "folder.cube");
  const struct {
    const char* name;
    std::string text;
    const char* reason;
    const char* file = "broken.cube";  // written with `text` unless it is already there or "none"
  } cases[] = {
      {"one line short", missingLast, "35936 valeurs pour une table de 33³ (35937 attendues)"},
      {"one line over", cubeText(2, identity) + "0 0 0\n", "9 valeurs pour une table de 2³ (8 attendues)"},
      {"nan", "LUT_3D_SIZE 2\n0 0 0\n1 nan 0\n0 1 0\n1 1 0\n0 0 1\n1 0 1\n0 1 1\n1 1 1\n", "valeur non finie, ligne 3"},
      {"overflow", "LUT_3D_SIZE 2\n1e39 0 0\n", "valeur non finie, ligne 2"},
      {"size 1", "LUT_3D_SIZE 1\n0.5 0.5 0.5\n", "taille 1 : au moins 2"},
      {"size 257", "LUT_3D_SIZE 257\n0 0 0\n", "taille 257 : au plus 256"},
      {"no size", cubeLines(2, identity), "taille absente (ligne LUT_3D_SIZE)"},
      {"size unreadable", "LUT_3D_SIZE 2.5\n" + cubeLines(2, identity), "LUT_3D_SIZE sans taille lisible, ligne 1"},
      {"comments only", "# nothing\nTITLE \"t\"\n", "taille absente (ligne LUT_3D_SIZE)"},
      {"1D and 3D together", "LUT_1D_SIZE 2\nLUT_3D_SIZE 2\n" + cubeLines(2, identity),
       "table 1D et table 3D dans un même fichier, non pris en charge"},
      {"1D count", "LUT_1D_SIZE 3\n0 0 0\n1 1 1\n", "2 valeurs pour une table 1D de 3"},
      {"empty", "", "fichier vide"},
      {"missing", "", "introuvable", "none.cube"},
      {"folder", "", "dossier", "folder.cube"},
  };
  for (const auto& c : cases) {
    const std::filesystem::path path = dir.path / c.file;
    if (c.file == std::string("broken.cube")) writeText(path, c.text);
    std::string error;
    EXPECT_FALSE(LUTLib::parseCube(path, &error)) << c.name;
    EXPECT_EQ(error, "LUT illisible : " + path.filename().string() + " (" + c.reason + ")") << c.name;
    EXPECT_FALSE(LUTLib::cached(path.string())) << c.name;
  }
  // Too large to be a table of at most 256³ entries: refused before reading (a sparse file).
  const auto huge = writeText(dir.path / "huge.cube", "LUT_3D_SIZE 2\n");
  std::filesystem::resize_file(huge, std::uintmax_t(600) << 20);
  std::string error;
  EXPECT_FALSE(LUTLib::parseCube(huge, &error));
  EXPECT_EQ(error, "LUT illisible : huge.cube (fichier de 600 Mo, au plus 512)");
}

TEST(CubeFile, ARepairedFileIsReadAgainAndThenKept) {
  TempDir dir;
  const auto path = writeText(dir.path / "fix.cube", "LUT_3D_SIZE 2\n0 0 0\n");
  std::string error;
  EXPECT_FALSE(LUTLib::cached(path.string(), &error));
  EXPECT_NE(error.find("(1 valeur pour une table de 2³ (8 attendues))"), std::string::npos) << error;
  writeText(path, cubeText(2, multilinear));
  const auto first = LUTLib::cached(path.string());
  ASSERT_TRUE(first) << "a failure must not stay in the cache";
  expectTable(*first, 2, multilinear, 1e-6, "repaired");
  writeText(path, cubeText(3, identity));
  EXPECT_EQ(LUTLib::cached(path.string()), first) << "a table is kept for the life of the process";
}

TEST(CubeFile, OneDimensionalTablesBecomeACubeOfTheirCurvesAndLookupIsTrilinear) {
  TempDir dir;
  // Knots at 0, 0.5, 1: red min(2r, 1), green 1 - g, blue 0.25 + 0.5 b, all linear between knots,
  // and 0.5 is a node of the 33 grid, so the cube holds the curves exactly.
  const auto t = LUTLib::parseCube(
      writeText(dir.path / "curve.cube", "TITLE \"1D\"\nLUT_1D_SIZE 3\nDOMAIN_MAX 1 1 1\n0 1 0.25\n1 0.5 0.5\n1 0 0.75\n"));
  ASSERT_TRUE(t);
  const auto curves = [](double r, double g, double b) { return Rgb{std::min(2 * r, 1.0), 1 - g, 0.25 + 0.5 * b}; };
  expectTable(*t, LUTLib::kGenericSize, curves, 1e-6, "1D");
  for (const Rgb& p : {Rgb{0.1, 0.37, 0.93}, Rgb{0.66, 0.02, 0.5}}) {
    const auto got = t->lookup(float(p[0]), float(p[1]), float(p[2]));
    const Rgb want = curves(p[0], p[1], p[2]);
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(got[c], want[c], 1e-5);
  }
  // Between the entries of a 3D table the lookup is trilinear; outside 0..1 each channel is clamped.
  const auto m = LUTLib::parseCube(writeText(dir.path / "m.cube", cubeText(3, multilinear)));
  ASSERT_TRUE(m);
  for (const Rgb& p : {Rgb{0.3, 0.55, 0.8}, Rgb{0.1, 0.9, 0.45}, Rgb{0.77, 0.23, 0.05}, Rgb{0.5, 0.5, 0.5}, Rgb{-0.2, 1.3, 0.5}}) {
    const auto got = m->lookup(float(p[0]), float(p[1]), float(p[2]));
    const Rgb want = multilinear(std::clamp(p[0], 0.0, 1.0), std::clamp(p[1], 0.0, 1.0), std::clamp(p[2], 0.0, 1.0));
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(got[c], want[c], 1e-5) << p[0] << " " << p[1] << " " << p[2];
  }
}

TEST(LutLabels, BadgesNameTheCurve) {
  const struct {
    std::optional<std::string> key;
    std::optional<std::string> badge;
  } cases[] = {
      {std::nullopt, std::nullopt}, {"", std::nullopt},          {"auto:slog3", "S-Log3"},
      {"auto:bmdfilm", "BMD Film"}, {"auto:applelog", "Apple Log"}, {"auto:unknown", "LUT"},
      {"/films/look.cube", "LUT"},
  };
  for (const auto& c : cases) EXPECT_EQ(LUTLib::short_(c.key), c.badge) << c.key.value_or("(none)");
}
