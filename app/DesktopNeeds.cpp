#include "app/DesktopNeeds.h"

#include <memory>

#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/Clock.h"
#include "Platform/Linux/LinuxMachine.h"

namespace halvo {

namespace {

/// Retention on this machine. The pages share one.
struct Retention {
  LinuxMachine machine = LinuxMachine();
  Calendar calendar = Calendar::local();
  RetentionRunner::Environment environment = RetentionRunner::Environment::real(machine, calendar);

  RetentionRunner::Result run(bool apply) const {
    return RetentionRunner::run({.apply = apply, .nowMs = Clock::system().nowMs(), .calendar = calendar, .environment = environment});
  }
};

RecordingsView::Operations recordings() {
  const auto retention = std::make_shared<Retention>();
  return {.settings = retention->environment.settings,
          .persist = retention->environment.persistSettings,
          .preview = [retention] { return RecordingsPage::of(retention->run(false), retention->environment.settings(), retention->environment.ops); },
          .apply = [retention] { return RecordingsPage::outcome(retention->run(true)); }};
}

}  // namespace

Pages::Needs desktopNeeds() { return {.root = DataPaths::dataRoot(), .recordings = recordings()}; }

}  // namespace halvo
