#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Records/CoachCorrection.h"
#include "CaptureShared/Records/EventLogEvent.h"

namespace halvo {

/// The conversation as a person reads it.
struct Conversation {
  /// What takes an effect of Lark's tools back.
  struct TakeBackDeclaration {
    std::int64_t declaredMs = 0;
    bool operator==(const TakeBackDeclaration&) const = default;
  };
  struct EndQuiet {
    std::int64_t requestedMs = 0;
    bool operator==(const EndQuiet&) const = default;
  };
  struct ForgetCorrection {
    std::int64_t atMs = 0;
    bool operator==(const ForgetCorrection&) const = default;
  };
  using Undo = std::variant<TakeBackDeclaration, EndQuiet, ForgetCorrection>;

  /// What a person can answer with by one press.
  struct Answer {
    std::string label = {}, hint = {};
    bool operator==(const Answer&) const = default;
  };
  struct Entry {
    enum class Kind {
      day,       ///< a line between two days
      you,       ///< what the person said
      lark,      ///< what Lark said
      effect,    ///< what a tool of Lark's changed
      declared,  ///< what the person declared elsewhere
      notice     ///< what the person is told went wrong
    };
    std::int64_t tsMs = 0;
    Kind kind = Kind::notice;
    std::string text = {};
    std::string thinking = {};      ///< what Lark thought before it said so
    std::string servedBy = {};      ///< the line that tells that another model answered
    std::optional<Undo> undo = {};  ///< of an effect that still holds
    std::vector<Answer> answers = {};  ///< of a question that still waits for one
    bool operator==(const Entry&) const = default;
  };
  std::vector<Entry> entries = {};
  bool isOpen = false;         ///< the popup was asked for and nobody closed it
  bool wantsAnswer = false;    ///< it was asked for, and the person has said nothing since
  std::int64_t openedMs = 0;   ///< when it was asked for last
  bool operator==(const Conversation&) const = default;

  struct Past {
    std::span<const EventLogEvent> events = {};  ///< in time order
    /// What is older has no entry; it tells only what still holds.
    std::int64_t fromMs = std::numeric_limits<std::int64_t>::min();
    /// Those that were not deleted; absent: all.
    std::optional<std::vector<CoachCorrection>> corrections = {};
    std::int64_t nowMs = 0;
    const Calendar& calendar;
  };
  static Conversation of(const Past& past);
};

}  // namespace halvo
