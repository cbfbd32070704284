#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/Environment.h"

namespace halvo {

/// What is never captured, and what left the machine.
struct PrivacyPage {
  struct Call {
    std::string when = {};   ///< "Mar 4, 9:15"
    std::string who = {};    ///< "gate", "coach"
    std::string where = {};  ///< the service that answered, or "this machine"
    std::int64_t promptTokens = 0, completionTokens = 0;
    bool leftTheMachine = false;
    bool operator==(const Call&) const = default;
  };
  std::string coach = {};              ///< where the coach's text goes, or why it goes nowhere
  std::vector<std::string> denylist = {};
  enum class DenylistSource {
    builtIn,
    theirs,   ///< in force
    kept,     ///< theirs, from the next login on; until then the built-in one is in force
    outside   ///< this program's environment says another one than what is kept
  };
  DenylistSource denylistSource = DenylistSource::builtIn;
  std::vector<Call> calls = {};        ///< newest first
  bool operator==(const PrivacyPage&) const = default;

  static constexpr std::size_t callsShown = 200;
  /// Throws `std::system_error` when the usage log is there and can't be read.
  static PrivacyPage read(const std::filesystem::path& root, const Environment& environment, const Calendar& calendar);
};

}  // namespace halvo
