#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>

#include "AmbitudeAppKit/Stores/BackgroundQueue.h"
#include "AmbitudeAppKit/Stores/HistoryExport.h"
#include "AmbitudeAppKit/Views/Page.h"
#include "CaptureShared/Foundation/Calendar.h"

class QCheckBox;
class QDateEdit;
class QLabel;
class QPushButton;

namespace halvo {

/// A stretch of history as files in a folder of the person's choice.
class ExportView : public Page {
  Q_OBJECT

 public:
  struct Config {
    std::filesystem::path root = {};
    Calendar calendar = Calendar::local();
    std::function<std::int64_t()> nowMs = {};
  };
  explicit ExportView(Config config, QWidget* parent = nullptr);

  /// Writes what is chosen into a new folder under `parent`.
  void exportInto(const std::filesystem::path& parent);

 private:
  HistoryExport::Choice choice() const;
  void chooseFolder();
  void tell(const QString& words, bool isWarning);

  Config config_;
  QDateEdit *from_ = nullptr, *to_ = nullptr;
  QCheckBox *events_ = nullptr, *verdicts_ = nullptr, *samples_ = nullptr;
  QLabel* told_ = nullptr;
  QPushButton* start_ = nullptr;
  BackgroundQueue queue_;
};

}  // namespace halvo
