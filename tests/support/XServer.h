#pragma once

#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo::test {

/// A private X server, with openbox as its window manager unless told otherwise.
class XServer {
 public:
  struct Options {
    int width = 1280, height = 800, depth = 24;
    bool hasWindowManager = true;
    std::vector<std::string> more = {};  ///< further arguments of Xvfb
  };
  /// Ready for windows when built. Throws `std::runtime_error` when it can't be brought up.
  XServer() : XServer(Options{}) {}
  explicit XServer(Options options);

  const std::string& display() const { return display_; }

  /// Kills the server as a crash would; the window manager falls with it.
  void crash();
  /// A new server on the same display after `crash`.
  void restart();
  void freeze() const;
  void thaw() const;

  /// Real input events, as xdotool sends them: {"key", "a"}, {"mousemove", "10", "20"}.
  void input(std::vector<std::string> words) const;

 private:
  void start(const std::vector<std::string>& displayArguments);
  /// Starts the server; its display's number, or nothing when it ended without one.
  std::string launched(const std::vector<std::string>& displayArguments);

  Options options_;
  TemporaryFolder home_;
  std::string display_;
  ChildProcess server_, windowManager_;  // in this order: the window manager goes first
};

}  // namespace halvo::test
