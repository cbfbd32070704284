#pragma once

#include <functional>
#include <string>
#include <vector>

#include "AmbitudeAppKit/Present/RecordingsPage.h"
#include "AmbitudeAppKit/Stores/BackgroundQueue.h"
#include "AmbitudeAppKit/Views/Page.h"
#include "CaptureShared/Foundation/Clock.h"

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
    std::function<void(const RetentionSettingsStore::Change&)> change;  ///< throws what `RetentionSettingsStore::change` does
    std::function<RecordingsPage()> preview;
    std::function<std::vector<std::string>()> apply;
    std::function<std::int64_t()> nowMs = Clock::system().nowMs;
  };
  explicit RecordingsView(Operations operations, QWidget* parent = nullptr);
  void shown() override;

 private:
  void show(const RecordingsPage& page);
  void offer(qlonglong days);
  void showSettings(const RetentionSettings& settings);
  void save();
  void apply();
  void tell(const QString& words);

  Operations operations_;
  QComboBox* days_ = nullptr;
  QCheckBox* onRestart_ = nullptr;
  QLabel *protection_ = nullptr, *summary_ = nullptr, *told_ = nullptr;
  QTableWidget* table_ = nullptr;
  QPushButton* delete_ = nullptr;
  int pendingSaves_ = 0;  ///< while there are any, the controls hold what the person wants and the file doesn't yet
  BackgroundQueue queue_{BackgroundQueue::AtEnd::finish};  ///< what was chosen is kept, whatever is closed meanwhile
};

}  // namespace halvo
