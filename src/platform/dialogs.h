#pragma once
// File panels and alerts. The desktop shows Qt's; tests script the answers and read what was
// asked, so every operation that asks the user runs headless.
#include <deque>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace ombrik {

struct SavePanel {
  std::string title;
  std::filesystem::path directory;
  std::string proposedName;
  std::vector<std::string> types;  // extensions, without the dot
  bool otherTypesAllowed = true;
  bool canCreateFolders = true;
  std::string message;  // shown in the panel, under its title
};

struct OpenPanel {
  std::string title;
  std::filesystem::path directory;
  std::vector<std::string> types;
  std::string message;  // shown in the panel, above the files
};

struct Alert {
  std::string title;
  std::string text;
  std::vector<std::string> buttons;  // the first is the default
};

class Dialogs {
public:
  virtual ~Dialogs() = default;
  virtual std::optional<std::filesystem::path> save(const SavePanel& panel) = 0;  // none: cancelled
  virtual std::optional<std::filesystem::path> open(const OpenPanel& panel) = 0;
  // Several files at once; empty: cancelled.
  virtual std::vector<std::filesystem::path> openMany(const OpenPanel& panel) = 0;
  virtual int alert(const Alert& alert) = 0;  // the index of the button chosen
  // A folder (the panel's types are ignored); none: cancelled.
  virtual std::optional<std::filesystem::path> folder(const OpenPanel& panel) = 0;
};

// Answers from a script, in order; a panel with no answer left is cancelled, an alert gets its
// last button.
class ScriptedDialogs final : public Dialogs {
public:
  std::deque<std::optional<std::filesystem::path>> panelAnswers;
  std::deque<std::vector<std::filesystem::path>> manyAnswers;
  std::deque<int> alertAnswers;
  std::vector<SavePanel> savePanels;
  std::vector<OpenPanel> openPanels;
  std::vector<Alert> alerts;

  std::optional<std::filesystem::path> save(const SavePanel& panel) override {
    savePanels.push_back(panel);
    return next();
  }
  std::optional<std::filesystem::path> open(const OpenPanel& panel) override {
    openPanels.push_back(panel);
    return next();
  }
  std::vector<std::filesystem::path> openMany(const OpenPanel& panel) override {
    openPanels.push_back(panel);
    if (manyAnswers.empty()) return {};
    auto answer = manyAnswers.front();
    manyAnswers.pop_front();
    return answer;
  }
  std::optional<std::filesystem::path> folder(const OpenPanel& panel) override {
    openPanels.push_back(panel);
    return next();
  }
  int alert(const Alert& a) override {
    alerts.push_back(a);
    if (alertAnswers.empty()) return int(a.buttons.size()) - 1;
    const int answer = alertAnswers.front();
    alertAnswers.pop_front();
    return answer;
  }

private:
  std::optional<std::filesystem::path> next() {
    if (panelAnswers.empty()) return std::nullopt;
    auto answer = panelAnswers.front();
    panelAnswers.pop_front();
    return answer;
  }
};

}  // namespace ombrik
