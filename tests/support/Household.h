#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Records/ClassifierTick.h"
#include "CaptureShared/Records/EventLogEvent.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/XServer.h"

namespace halvo::test {

/// A screen and a session bus for the real programs: Xvfb with a window manager, and a screen saver that can be told to lock.
class Desktop {
 public:
  /// Throws `std::runtime_error` when a part of it does not come up.
  Desktop();

  void lockSession();

  XServer screen;
  PrivateBus bus;
};

/// One person's programs with a data root, a home and logs of their own; what they did is read back from their files.
class Household {
 public:
  /// `bin` holds the programs. Makes `work` with "data", "home", "tmp" and "logs" in it, those of an earlier household being removed.
  /// Throws `std::runtime_error`, and removes nothing, when anything else stands there.
  Household(std::filesystem::path bin, std::filesystem::path work, const Desktop& desktop);

  std::filesystem::path work() const { return work_; }
  std::filesystem::path dataRoot() const { return work_ / "data"; }
  std::filesystem::path home() const { return work_ / "home"; }

  /// What every program of this household is started with; a change is for those started later.
  Environment environment = {};

  /// Starts the practice model, with further arguments; one that runs ends first, and its port is kept. Throws `std::runtime_error` when
  /// it does not listen.
  void startModel(std::vector<std::string> more = {});
  /// Starts an agent, ending the one that runs; its standard streams go to the end of its log.
  void start(const std::string& agent);
  ChildProcess& program(const std::string& name) { return programs_[name]; }
  /// Runs a command to its end; both its standard streams go to `output`, or nowhere. Answers its exit status, 124 when it
  /// took longer than 20 s.
  int run(const std::string& command, const std::vector<std::string>& words, std::optional<int> output = {}) const;

  /// What an agent has said so far, a text a line.
  std::vector<std::string> logLines(const std::string& agent) const;

  std::vector<EventLogEvent> events() const;
  std::vector<ClassifierTick> verdicts() const;
  bool sawVerdict(const std::string& state, const std::string& app) const;
  /// The time of the first event of a type that is accepted.
  std::optional<std::int64_t> eventTime(const std::string& type, const std::function<bool(const EventLogEvent&)>& accepts = {}) const;
  /// The time of the first message of "user" or "coach" with words in it, at or after a moment.
  std::optional<std::int64_t> messageTime(const std::string& role, std::int64_t fromMs = 0) const;

 private:
  std::filesystem::path bin_, work_;
  std::map<std::string, ChildProcess> programs_;
};

}  // namespace halvo::test
