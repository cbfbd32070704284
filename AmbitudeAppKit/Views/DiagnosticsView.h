#pragma once

#include <functional>
#include <string>

#include "AmbitudeAppKit/Stores/BackgroundQueue.h"
#include "AmbitudeAppKit/Views/Page.h"

class QLabel;
class QPlainTextEdit;
class QPushButton;

namespace halvo {

/// The report for someone who helps: all of it is shown before it is saved, and nothing sends it anywhere.
class DiagnosticsView : public Page {
  Q_OBJECT

 public:
  explicit DiagnosticsView(std::function<std::string()> report, QWidget* parent = nullptr);
  void shown() override;

 private:
  void save();

  std::function<std::string()> report_;
  bool isLooking_ = false;  ///< a report is on its way: a second one would take the place of what was read and saved
  QPlainTextEdit* text_ = nullptr;
  QLabel* told_ = nullptr;
  QPushButton* save_ = nullptr;
  BackgroundQueue queue_;
};

}  // namespace halvo
