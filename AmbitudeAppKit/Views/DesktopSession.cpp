#include "AmbitudeAppKit/Views/DesktopSession.h"

#include <QMainWindow>

#include "AmbitudeAppKit/Views/AppIcon.h"
#include "AmbitudeAppKit/Views/DesktopApplication.h"
#include "AmbitudeAppKit/Views/Theme.h"

namespace halvo {

DesktopSession::DesktopSession(Needs needs) : needs_(std::move(needs)) {
  const auto state = needs_.setup.state();
  if (state == DataRootSetup::State::ready) {
    open();
    return;
  }
  setup_ = std::make_unique<QMainWindow>();
  setup_->setWindowTitle(tr("Halvo"));
  setup_->setWindowIcon(AppIcon::icon());
  setup_->resize(Theme::scaled(720), Theme::scaled(640));
  auto* view = new SetupView(needs_.setup, needs_.offeredRoot, state);
  setup_->setCentralWidget(view);
  connect(view, &SetupView::finished, this, [this] {
    open();
    show();
    // The view is still at work for us.
    setup_.release()->deleteLater();
  }, Qt::QueuedConnection);
}

DesktopSession::~DesktopSession() = default;

void DesktopSession::open() { application_ = needs_.application(); }

void DesktopSession::show() {
  if (application_) {
    application_->show();
    if (setup_) setup_->hide();
    return;
  }
  setup_->show();
  setup_->raise();
  setup_->activateWindow();
}

}  // namespace halvo
