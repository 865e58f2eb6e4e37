#pragma once
// The AI keyer's screen colour, found on a small copy of the Front picture: the larger of the
// clearly green and clearly blue pixel groups, with its mean colour.
#include <optional>
#include <string>

namespace ombrik {

struct GreenScreen {
  int screen = 0;  // 0 green, 1 blue
  double r = 0, g = 0, b = 0;  // mean colour of the group, 0..1
  int percent = 0;             // share of the picture, rounded down
};

// `rgba`: w·h pixels of 4 floats, by rows. A pixel is green when g - max(r, b) > 0.05, blue when
// b - max(r, g) > 0.05; none when the picture has neither.
std::optional<GreenScreen> greenKeyDetect(const float* rgba, int w, int h);
// "Écran vert détecté (42 % de l'image) : R 0.10 · V 0.80 · B 0.20", or the text asking for the
// eyedropper when no screen was found.
std::string greenKeyStatus(const std::optional<GreenScreen>& found);

}  // namespace ombrik
