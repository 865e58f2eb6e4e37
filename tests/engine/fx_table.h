#pragma once
// Table-driven pixel tests of the effect kernels: one row names a kernel, the pictures it reads,
// the parameter sets and times to run it at, the reference each pixel is compared with and the
// tolerance, so a new kernel is one more row.
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "engine/fx_reference.h"
#include "engine/kernel_runner.h"
#include "engine/test_pictures.h"

namespace ombrik::test {

// What a reference reads: the source, the picture bound as aux (the source itself when the row binds
// none, as the engine does) and the matte when one is bound.
struct FxInputs {
  const Image& src;
  const Image& aux;
  const Image* matte;
};
// The expected colour of pixel (x, y) for the parameters (padded to 16) at a time; nullopt leaves
// a pixel that float rounding may tip either way unchecked.
using PixelRef = std::function<std::optional<C>(const FxInputs&, const std::vector<float>&, float, int, int)>;

struct FxRow {
  std::string name;  // the test's name
  std::string kernel;
  Image src;
  std::optional<Image> aux, matte;
  std::vector<std::vector<float>> cases;
  PixelRef ref;
  double tol = kSampled;
  Coverage least = {1, 1};  // the least part of the pixels the reference must check
  std::vector<float> times = {0.0f};
};

// A colour kernel that reads only its own pixel: ref(source pixel, params).
inline PixelRef pointwise(std::function<C(C, const std::vector<float>&)> ref) {
  return [ref](const FxInputs& in, const std::vector<float>& P, float, int x, int y) {
    return std::optional<C>(ref(of(in.src.at(x, y)), P));
  };
}

// Runs every parameter set at every time and compares the whole picture with the reference.
inline void checkRow(const FxRow& row) {
  const Image* aux = row.aux ? &*row.aux : nullptr;
  const Image* matte = row.matte ? &*row.matte : nullptr;
  const FxInputs in{row.src, aux ? *aux : row.src, matte};
  for (const auto& p : row.cases)
    for (float t : row.times) {
      std::vector<float> P = p;
      P.resize(16, 0.0f);
      const Image got = runFx(row.kernel, row.src, p, {.matte = matte, .aux = aux, .time = t});
      EXPECT_TRUE(matches(got, [&](int x, int y) { return row.ref(in, P, t, x, y); }, row.tol, row.least))
          << describe(row.kernel, p) << " at " << t << " s";
    }
}

// Every row of a table, each failure named by its row.
inline void checkRows(const std::vector<FxRow>& rows) {
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    checkRow(row);
  }
}

// Settings under which the picture must come back as it went in.
struct IdentityRow {
  std::string kernel;
  Image src;
  std::optional<Image> aux;
  std::vector<float> p;
  double tol = kStep;
};
inline void checkIdentity(const IdentityRow& row) {
  const Image got = runFx(row.kernel, row.src, row.p, {.aux = row.aux ? &*row.aux : nullptr});
  EXPECT_TRUE(matches(got, row.src, float(row.tol))) << describe(row.kernel, row.p);
}

}  // namespace ombrik::test
