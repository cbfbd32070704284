#pragma once

#include <functional>
#include <string>
#include <vector>

#include "AmbitudeAppKit/Present/RecordingsPage.h"
#include "AmbitudeAppKit/Stores/BackgroundQueue.h"
#include "AmbitudeAppKit/Views/Page.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QPushButton;
class QTableWidget;

namespace halvo {

/// Whether the screen is recorded, how long recordings are kept, what would be deleted now, and doing so.
class RecordingsView : public Page {
  Q_OBJECT

 public:
  /// What the page does to the disk; called off the main thread, one at a time.
  struct Operations {
    std::function<RetentionSettings()> settings;
    std::function<void(const RetentionSettings&)> persist;  ///< throws `std::system_error`
    std::function<RecordingsPage()> preview;
    std::function<std::vector<std::string>()> apply;
  };
  explicit RecordingsView(Operations operations, QWidget* parent = nullptr);
  void shown() override;

 private:
  void show(const RecordingsPage& page);
  void showSettings(const RetentionSettings& settings);
  void save();
  void apply();
  void tell(const QString& words);

  Operations operations_;
  QComboBox* days_ = nullptr;
  QCheckBox* onRestart_ = nullptr;
  QLabel *summary_ = nullptr, *told_ = nullptr;
  QTableWidget* table_ = nullptr;
  QPushButton* delete_ = nullptr;
  int pendingSaves_ = 0;  ///< while there are any, the controls hold what the person wants and the file doesn't yet
  BackgroundQueue queue_;
};

}  // namespace halvo
