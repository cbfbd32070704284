#pragma once

#include <functional>
#include <stop_token>
#include <string>

#include "AmbitudeAppKit/Present/ModelPage.h"
#include "AmbitudeAppKit/Stores/BackgroundQueue.h"
#include "AmbitudeAppKit/Views/Page.h"

class QLabel;
class QProgressBar;
class QPushButton;
class QVBoxLayout;

namespace halvo {

/// The local models: install with progress, cancel, go on, check, remove, and which one judges.
class ModelView : public Page {
  Q_OBJECT

 public:
  /// Called off the main thread. `list` may run beside one of the others.
  struct Operations {
    using Work = std::function<ModelShelf::Outcome(const std::string& model, const ModelShelf::OnProgress&, const std::stop_token&)>;
    std::function<ModelPage()> list;
    Work install, verify;
    std::function<ModelShelf::Outcome(const std::string& model)> remove, choose;
  };
  explicit ModelView(Operations operations, QWidget* parent = nullptr);
  /// Ends what runs; what came so far is kept.
  ~ModelView() override;
  void shown() override;

 private:
  void show(const ModelPage& page);
  QWidget* cardOf(const ModelPage::Row& row);
  /// Runs one of the long operations, with its progress shown and a way to end it.
  void start(const Operations::Work& work, const std::string& model);
  void remove(const std::string& model, const QString& state);
  void change(const std::function<ModelShelf::Outcome()>& work);
  void tell(const ModelShelf::Outcome& outcome);
  void setBusy(bool isBusy);

  Operations operations_;
  QVBoxLayout* models_ = nullptr;
  QWidget* progressCard_ = nullptr;
  QProgressBar* bar_ = nullptr;
  QLabel *progressWords_ = nullptr, *told_ = nullptr;
  QPushButton* cancel_ = nullptr;
  bool isBusy_ = false;
  ModelPage shownPage_;
  std::stop_source ending_;
  BackgroundQueue looks_, work_;
};

}  // namespace halvo
