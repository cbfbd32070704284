#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "AmbitudeAppKit/Live/LiveLog.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/Environment.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/TestWindow.h"
#include "tests/support/XServer.h"

namespace halvo {

/// One afternoon in a minute, played on a private desktop with the real programs: an essay is declared, a video site is opened, Lark asks, the person
/// answers with what they are doing now, and the session locks. What is believed is only what the files say.
class Scene {
 public:
  /// `bin` holds the programs; everything is written under `work`, which is emptied first.
  Scene(std::filesystem::path bin, std::filesystem::path work);

  /// Plays it; false when a step did not come true in its time. Prints as it goes.
  bool play();

  std::filesystem::path dataRoot() const { return work_ / "data"; }

 private:
  void prepare();
  void startAgent(const std::string& name);
  /// Runs one of our commands to its end and shows what it printed. Throws `std::runtime_error` when it fails.
  void command(const std::string& program, const std::vector<std::string>& arguments);
  /// Shows what happens until `holds` does; throws `std::runtime_error` naming `what` when it does not in `seconds`.
  void expect(const std::string& what, double seconds, const std::function<bool()>& holds);
  void showNews();
  void lockSession();
  /// The facts that the scene was played for, read back from the files.
  bool verify();

  bool sawVerdict(const std::string& state, const std::string& app) const;
  std::optional<std::int64_t> eventTime(const std::string& type, const std::function<bool(const EventLogEvent&)>& accepts) const;
  std::vector<EventLogEvent> events() const;

  std::filesystem::path bin_, work_;
  Environment environment_;
  Calendar calendar_ = Calendar::local();
  std::unique_ptr<test::XServer> display_;
  std::unique_ptr<test::PrivateBus> bus_;
  std::unique_ptr<test::TestWindow> editor_, videoSite_;
  std::map<std::string, test::ChildProcess> programs_;
  std::unique_ptr<LiveLog> live_;
};

}  // namespace halvo
