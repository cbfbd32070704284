#pragma once

#include <filesystem>

#include "AmbitudeAppKit/Present/PrivacyPage.h"
#include "AmbitudeAppKit/Stores/BackgroundQueue.h"
#include "AmbitudeAppKit/Views/Page.h"

class QLabel;
class QPlainTextEdit;
class QTableWidget;

namespace halvo {

/// What is never captured, what the coach runs on, and every call to a model.
class PrivacyView : public Page {
  Q_OBJECT

 public:
  explicit PrivacyView(std::filesystem::path root, QWidget* parent = nullptr);
  void shown() override;

 private:
  void show(const PrivacyPage& page);
  void saveDenylist();

  std::filesystem::path root_;
  QLabel *coach_ = nullptr, *denylistNote_ = nullptr, *told_ = nullptr;
  QPlainTextEdit* denylist_ = nullptr;
  QTableWidget* calls_ = nullptr;
  BackgroundQueue changes_{BackgroundQueue::AtEnd::finish}, reads_;
};

}  // namespace halvo
