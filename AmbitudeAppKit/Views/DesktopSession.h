#pragma once

#include <functional>
#include <memory>

#include <QObject>

#include "AmbitudeAppKit/Views/SetupView.h"

class QMainWindow;

namespace halvo {

class DesktopApplication;

/// What the application shows from its start on: the set-up while there is nowhere to record to, everything else from then on.
class DesktopSession : public QObject {
  Q_OBJECT

 public:
  struct Needs {
    SetupView::Operations setup;
    QString offeredRoot;
    std::function<std::unique_ptr<DesktopApplication>()> application;  ///< called once there is a data root
  };
  explicit DesktopSession(Needs needs);
  ~DesktopSession() override;

  /// Shows the window of the moment and brings it to the front.
  void show();
  /// Absent while the set-up stands in its place.
  DesktopApplication* application() { return application_.get(); }
  QMainWindow* setupWindow() { return setup_.get(); }

 private:
  void open();

  Needs needs_;
  std::unique_ptr<DesktopApplication> application_;
  std::unique_ptr<QMainWindow> setup_;
};

}  // namespace halvo
