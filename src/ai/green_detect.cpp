#include "ai/green_detect.h"

#include <algorithm>

#include "ai/fixed_text.h"

namespace ombrik {

std::optional<GreenScreen> greenKeyDetect(const float* rgba, int w, int h) {
  if (!rgba || w <= 0 || h <= 0) return std::nullopt;
  struct Group {
    double r = 0, g = 0, b = 0;
    long count = 0;
  } green, blue;
  const long total = long(w) * h;
  for (long i = 0; i < total; ++i) {
    const float* p = rgba + 4 * i;
    const double r = p[0], g = p[1], b = p[2];
    Group* into = g - std::max(r, b) > 0.05 ? &green : b - std::max(r, g) > 0.05 ? &blue : nullptr;
    if (!into) continue;
    into->r += r, into->g += g, into->b += b;
    ++into->count;
  }
  if (green.count == 0 && blue.count == 0) return std::nullopt;
  const bool isBlue = blue.count > green.count;
  const Group& won = isBlue ? blue : green;
  return GreenScreen{isBlue ? 1 : 0, won.r / won.count, won.g / won.count, won.b / won.count,
                     int(won.count * 100 / total)};
}

std::string greenKeyStatus(const std::optional<GreenScreen>& found) {
  if (!found)
    return "Pas d'écran vert ou bleu reconnu dans l'image : prenez sa couleur à la pipette (clic dans le viewer).";
  return std::string("Écran ") + (found->screen == 1 ? "bleu" : "vert") + " détecté (" +
         std::to_string(found->percent) + " % de l'image) : R " + fixedText(found->r, 2) + " · V " +
         fixedText(found->g, 2) + " · B " + fixedText(found->b, 2);
}

}  // namespace ombrik
