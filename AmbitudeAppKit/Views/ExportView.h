#pragma once

#include <filesystem>

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
  ExportView(std::filesystem::path root, Calendar calendar, QWidget* parent = nullptr);

  /// Writes what is chosen into a new folder under `parent`.
  void exportInto(const std::filesystem::path& parent);

 private:
  HistoryExport::Choice choice() const;
  void chooseFolder();

  std::filesystem::path root_;
  Calendar calendar_;
  QDateEdit *from_ = nullptr, *to_ = nullptr;
  QCheckBox *events_ = nullptr, *verdicts_ = nullptr, *samples_ = nullptr;
  QLabel* told_ = nullptr;
  QPushButton* start_ = nullptr;
  BackgroundQueue queue_;
};

}  // namespace halvo
