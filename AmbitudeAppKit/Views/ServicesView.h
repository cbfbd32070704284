#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "AmbitudeAppKit/AgentControl/AgentActions.h"
#include "AmbitudeAppKit/AgentControl/AgentLog.h"
#include "AmbitudeAppKit/Present/ServicesPage.h"
#include "AmbitudeAppKit/Stores/BackgroundQueue.h"
#include "AmbitudeAppKit/Views/Page.h"

class QComboBox;
class QLabel;
class QPlainTextEdit;
class QPushButton;
class QTableWidget;
class QVBoxLayout;

namespace halvo {

/// The background agents: what each is doing, its log, and how they come and go.
class ServicesView : public Page {
  Q_OBJECT

 public:
  /// Called off the main thread; `look` and `log` may run beside the rest.
  struct Operations {
    using Tell = AgentActions::Tell;
    using Act = std::function<void(AgentActions::Agents, const Tell&)>;
    std::function<ServicesPage()> look;
    Act install, restart, stop, remove;
    std::function<AgentLog(BackgroundAgent)> log;

    static Operations of(const std::shared_ptr<AgentActions>& actions);
  };
  explicit ServicesView(Operations operations, QWidget* parent = nullptr);
  void shown() override;

 private:
  void addButtons(QVBoxLayout* card);
  void addLog(QVBoxLayout* column);
  void show(const ServicesPage& page);
  void choose();
  void lookAtLog();
  void confirmRemoval();
  void run(const Operations::Act& act);
  void setBusy(bool isBusy);
  /// The one that is chosen; all when none is.
  std::vector<BackgroundAgent> chosen() const;

  Operations operations_;
  QVBoxLayout* banners_ = nullptr;
  QTableWidget* table_ = nullptr;
  QComboBox* which_ = nullptr;
  QLabel *told_ = nullptr, *logFile_ = nullptr;
  QPlainTextEdit* log_ = nullptr;
  std::vector<QPushButton*> actions_;
  ServicesPage page_;
  BackgroundQueue looks_, work_;
};

}  // namespace halvo
