#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Records/EventLogEvent.h"

namespace halvo {

/// The conversation as a person reads it.
struct Conversation {
  /// What takes an effect of Lark's tools back.
  struct ClearDeclaration {
    bool operator==(const ClearDeclaration&) const = default;
  };
  struct EndQuiet {
    std::int64_t requestedMs = 0;
    bool operator==(const EndQuiet&) const = default;
  };
  struct ForgetCorrection {
    std::int64_t atMs = 0;
    bool operator==(const ForgetCorrection&) const = default;
  };
  using Undo = std::variant<ClearDeclaration, EndQuiet, ForgetCorrection>;

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
    bool operator==(const Entry&) const = default;
  };
  std::vector<Entry> entries = {};
  bool isOpen = false;         ///< the popup was asked for and nobody closed it
  bool wantsAnswer = false;    ///< it was asked for, and the person has said nothing since
  std::int64_t openedMs = 0;   ///< when it was asked for last
  bool operator==(const Conversation&) const = default;

  /// Of events in time order.
  static Conversation of(std::span<const EventLogEvent> events, std::int64_t nowMs, const Calendar& calendar);
};

}  // namespace halvo
