#include "CaptureShared/DataRoot/AgentProcess.h"

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>

#include "CaptureShared/DataRoot/AgentLogging.h"
#include "CaptureShared/DataRoot/AgentUmask.h"
#include "CaptureShared/Foundation/CoreDumps.h"

namespace halvo {

AgentProcess::Privacy::Privacy() {
  AgentUmask::apply();
  // Window titles, pictures and conversations must not end up in a core file, nor be read by a debugger of the account.
  turnCoreDumpsOff();
}

AgentProcess::AgentProcess(const std::string& name) { AgentLogging::bootstrap(logSubdirectory, name); }

int AgentProcess::run(const std::function<void(const std::stop_token&)>& loop, double maxEndingSec) const {
  std::mutex mutex;
  std::condition_variable_any changed;
  bool isDone = false;
  const std::jthread running([&] {
    loop(stop());
    const std::lock_guard hold(mutex);
    isDone = true;
    changed.notify_all();
  });
  std::unique_lock hold(mutex);
  changed.wait(hold, stop(), [&] { return isDone; });
  if (changed.wait_for(hold, std::chrono::duration<double>(maxEndingSec), [&] { return isDone; })) return 0;
  std::fflush(nullptr);
  std::_Exit(0);
}

}  // namespace halvo
