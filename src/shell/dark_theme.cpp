#include "shell/dark_theme.h"

#include <QApplication>
#include <QPalette>
#include <QStyleFactory>

namespace ombrik {

void applyDarkTheme(QApplication& app) {
  app.setStyle(QStyleFactory::create("Fusion"));
  QPalette p;
  p.setColor(QPalette::Window, QColor(38, 38, 43));
  p.setColor(QPalette::WindowText, QColor(214, 214, 220));
  p.setColor(QPalette::Base, QColor(26, 26, 30));
  p.setColor(QPalette::AlternateBase, QColor(44, 44, 50));
  p.setColor(QPalette::Text, QColor(214, 214, 220));
  p.setColor(QPalette::Button, QColor(50, 50, 56));
  p.setColor(QPalette::ButtonText, QColor(214, 214, 220));
  p.setColor(QPalette::Highlight, QColor(226, 150, 60));
  p.setColor(QPalette::HighlightedText, QColor(20, 20, 22));
  p.setColor(QPalette::ToolTipBase, QColor(30, 30, 34));
  p.setColor(QPalette::ToolTipText, QColor(220, 220, 226));
  p.setColor(QPalette::Disabled, QPalette::Text, QColor(110, 110, 118));
  p.setColor(QPalette::Disabled, QPalette::WindowText, QColor(110, 110, 118));
  p.setColor(QPalette::Disabled, QPalette::ButtonText, QColor(110, 110, 118));
  app.setPalette(p);
}

}  // namespace ombrik
