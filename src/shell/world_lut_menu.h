#pragma once
// The LUT choices of one world, in the Mondes menu and in the worlds panel alike: none, a camera
// curve, the world's own .cube file or a new one, and whether the LUT applies at render.
class QMenu;

namespace ombrik {

class AppModel;
struct Batch;

// Fills `menu`; its entries live as long as it does.
void fillWorldLutMenu(QMenu* menu, AppModel& model, const Batch& world);

}  // namespace ombrik
