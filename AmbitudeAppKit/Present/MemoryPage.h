#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "AmbitudeCore/Folds/CoachPreferences.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Records/CoachCorrection.h"

namespace halvo {

/// What Lark remembers, where each of it came from, and what the person taught it.
struct MemoryPage {
  struct Item {
    std::string text = {};
    std::string origin = {};  ///< "you said so, Mar 4, 9:15", "from the period of ..."
    bool operator==(const Item&) const = default;
  };
  struct Thread {
    std::string name = {}, status = {}, notes = {};
    bool operator==(const Thread&) const = default;
  };
  struct Correction {
    std::int64_t atMs = 0;
    std::string text = {}, how = {};
    bool operator==(const Correction&) const = default;
  };
  std::string asOf = {};       ///< "as of Mar 4, 3:12, from 21 period(s)"; empty: nothing is remembered yet
  std::string unorganized = {};  ///< why the last night's memory could not be put in order
  std::string forgotten = {};  ///< "everything before Mar 1, 9:00 is forgotten"
  std::string notice = {};     ///< what keeps memory from coming about
  std::vector<Thread> threads = {};
  std::vector<Item> facts = {}, lessons = {};
  std::vector<Correction> corrections = {};
  CoachPreferences preferences = {};
  bool operator==(const MemoryPage&) const = default;

  /// Throws what the stores throw: a damaged file is not an empty memory.
  static MemoryPage read(const std::filesystem::path& root, std::int64_t nowMs, const Calendar& calendar);

  /// What forgetting means, said before it is done.
  static std::string meaningOfForgetting();
};

/// The standing notes, in the order in which they are shown.
struct StandingNote {
  const char* whom;
  std::string CoachPreferences::*text;
};
inline constexpr std::array standingNotes{StandingNote{"gate", &CoachPreferences::gateInstructions},
                                          StandingNote{"coach", &CoachPreferences::coachInstructions},
                                          StandingNote{"classifier", &CoachPreferences::classifierInstructions}};

}  // namespace halvo
