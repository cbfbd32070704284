#pragma once

#include <filesystem>
#include <functional>
#include <memory>

#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Foundation/FileHandle.h"

class QSocketNotifier;

namespace halvo {

/// One application an account: a second start asks the first to come to the front. `halvo-app.lock` is held as long as the first one runs,
/// and `halvo-app.sock` beside it is where it is asked; both go by themselves with a process that is killed.
class SingleApplication {
 public:
  /// $XDG_RUNTIME_DIR, else the account's private temporary folder. Throws `std::runtime_error` when there is neither.
  static std::filesystem::path folder(const Environment& environment);

  /// Throws `std::system_error` when the lock's file can't be made or the socket not be bound.
  explicit SingleApplication(std::filesystem::path folder);
  ~SingleApplication();

  /// Whether this process is the one.
  bool isFirst() const { return static_cast<bool>(lock_); }
  /// For the first: calls `asked` on the main thread each time another start asks.
  void listen(std::function<void()> asked);
  /// For another: whether the first one was asked, within two seconds.
  bool askFirst() const;

 private:
  std::filesystem::path folder_;
  FileHandle lock_, socket_;
  std::unique_ptr<QSocketNotifier> notifier_;
};

}  // namespace halvo
