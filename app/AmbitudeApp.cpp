// The desktop application. `--dump` prints what the system believes and ends.
#include <csignal>
#include <cstdio>

#include "AmbitudeAppKit/Entry/AppEntryPoint.h"
#include "AmbitudeAppKit/Live/TerminalChat.h"
#include "CaptureShared/DataRoot/AgentUmask.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/TerminationSignals.h"

namespace {

/// Until there is a window: the conversation in the terminal it was started from.
void mainLoop() {
  if (!halvo::DataPaths::ensureSubdirsExist()) {
    std::fprintf(stderr, "%s\n", halvo::DataPaths::dataRootUnavailableReason().c_str());
    return;
  }
  halvo::TerminationSignals signals;
  halvo::TerminalChat chat({.dataRoot = halvo::DataPaths::dataRoot(), .processName = "AmbitudeApp"}, halvo::Calendar::local());
  chat.run(signals.token());
}

}  // namespace

int main(int argc, char** argv) {
  halvo::AgentUmask::apply();
  halvo::AppEntryPoint::run({argv + 1, argv + argc}, mainLoop);
}
