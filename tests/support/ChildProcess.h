#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <sys/types.h>

#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Foundation/Spawn.h"

namespace halvo::test {

/// A program that ends with the test that started it.
class ChildProcess {
 public:
  ChildProcess() = default;
  /// Its standard error, and its standard output unless a descriptor takes that place, go to nowhere.
  ChildProcess(const std::string& program, const std::vector<std::string>& arguments, const Environment& environment,
               std::vector<Spawn::Descriptor> descriptors = {});
  ChildProcess(ChildProcess&& other) noexcept : pid_(std::exchange(other.pid_, 0)) {}
  ChildProcess& operator=(ChildProcess&& other) noexcept;
  ~ChildProcess() { end(); }

  pid_t pid() const { return pid_; }
  void signal(int number) const;
  /// Its exit code, or 128 + signal, if it ends within `seconds`.
  std::optional<int> wait(double seconds);
  /// Asks it to end, and makes it after two seconds.
  void end();

 private:
  pid_t pid_ = 0;
};

}  // namespace halvo::test
