#pragma once
// Drawing of the node editor: background, wires, nodes and the gestures in progress.
#include <QRectF>
#include <QString>
#include <vector>
#include <optional>

#include "shell/schematic_geometry.h"

class QPainter;

namespace ombrik {

class AppModel;

struct SchematicScene {
  const AppModel& model;
  schematic::View view;
  std::optional<Uuid> displayed;                // the node on the viewer
  std::optional<schematic::PortHit> highlight;  // the input a wire being drawn would take
  std::optional<Uuid> litEdge;                  // the wire a dragged node would go into
  std::optional<schematic::PortHit> armed;      // the input waiting for an output brought to it
};

// An open group as drawn: its frame and the chip that closes it, in view coordinates.
struct GroupFrameShown {
  QRectF frame, closeChip;
  QString name, closeLabel;
};

void paintBackground(QPainter& p, const QRectF& area, const schematic::View& view);
void paintWires(QPainter& p, const SchematicScene& scene);
void paintNodes(QPainter& p, const SchematicScene& scene);
// A wire being drawn and a cut stroke, in view coordinates.
void paintPendingWire(QPainter& p, Point from, Point to);
void paintCutStroke(QPainter& p, Point from, Point to);
void paintMarquee(QPainter& p, Point from, Point to);
// The frames of the open groups, drawn behind wires and nodes.
void paintGroupFrames(QPainter& p, const std::vector<GroupFrameShown>& frames);
// The wire a dragged node would make with the node it touches, in view coordinates.
void paintSnapLink(QPainter& p, Point from, Point to);
// The trash and context bands, the one under the pointer lit.
void paintDropBands(QPainter& p, double viewWidth, double viewHeight, schematic::DropBand hovered,
                    const QString& trashLabel, const QString& contextLabel);

}  // namespace ombrik
