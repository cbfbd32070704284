#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CaptureShared/Foundation/Log.h"
#include "Platform/Desktop/DesktopFacts.h"
#include "Platform/Linux/XConnection.h"

namespace halvo {

/// What an X server tells of one moment.
struct XFacts {
  std::optional<FrontmostApp> frontmostApp = {};        ///< absent: nothing has the focus, or no window manager says what has
  std::optional<std::vector<WindowInfo>> windows = {};  ///< front to back
  IdleSeconds idle = {};
  std::optional<Point> pointer = {};
};

/// Reads windows, focus, pointer and idleness from an X server with an EWMH window manager. Connects when first asked and again
/// after the server went away; says both once. Of input it looks at the kind and the time only: which key was hit is never read.
class XDesktopReader {
 public:
  struct Options {
    std::optional<std::string> display = {};  ///< as in ":0"; absent: no display
    double timeoutSec = 0.5;                  ///< longest wait for the server in one read; it answers in a fraction of a millisecond
    double refusedRetrySec = 60;              ///< a display that refuses us is asked again after this long
    LogSink log = {};
  };

  explicit XDesktopReader(Options options);
  ~XDesktopReader();

  /// Everything at once: one pipelined batch of requests for the desktop, one for its windows, and a third only while a menu or another
  /// window without a manager is up. A window that vanishes meanwhile is left out. Never throws.
  XFacts read();

 private:
  struct Live;
  void connect();

  Options options_;
  std::unique_ptr<Live> live_;
  std::optional<XUnavailable::Kind> trouble_;  ///< what was said last, so that it is said once
  std::int64_t retryAtMs_ = 0;                 ///< on the steady clock
};

}  // namespace halvo
