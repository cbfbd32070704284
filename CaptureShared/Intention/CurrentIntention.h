#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "CaptureShared/Foundation/Calendar.h"

namespace halvo {

/// The task file body taken apart.
struct CurrentIntention {
  std::string task = {};
  std::optional<std::string> declared = {}, estimate = {}, why = {};

  /// Absent without a "Task:" line that holds anything.
  static std::optional<CurrentIntention> parse(std::string_view body);
  bool operator==(const CurrentIntention&) const = default;
};

/// A declaration with its time read.
struct DeclaredIntentionDetails {
  std::string text = {};
  std::optional<std::string> declaredAtRaw = {};
  std::optional<std::int64_t> declaredAtMs = {};
  std::optional<std::string> estimate = {};

  static std::optional<DeclaredIntentionDetails> parse(std::string_view body, const Calendar& calendar);
  bool operator==(const DeclaredIntentionDetails&) const = default;
};

/// What an "Estimate: until ..." says as a clock time of the declaration's day.
namespace EstimateReading {
struct None {
  bool operator==(const None&) const = default;
};
struct Unreadable {  ///< no clock time in it
  std::string text;
  bool operator==(const Unreadable&) const = default;
};
struct Rejected {  ///< a clock time that does not lie behind the declaration, or the declaration's own time is unknown
  std::string text;
  bool operator==(const Rejected&) const = default;
};
struct At {
  std::int64_t ms = 0;
  std::string text;
  bool operator==(const At&) const = default;
};
using Reading = std::variant<None, Unreadable, Rejected, At>;
Reading read(const DeclaredIntentionDetails& details, const Calendar& calendar);
}  // namespace EstimateReading

}  // namespace halvo
