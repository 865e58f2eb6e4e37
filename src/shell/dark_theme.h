#pragma once

class QApplication;

namespace ombrik {

// The compositor's dark look: pictures are judged against dark surroundings.
void applyDarkTheme(QApplication& app);

}  // namespace ombrik
