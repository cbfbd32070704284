#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace halvo {

/// The moment that a judgment's frame shows.
struct ClassifierFrameInstant {
  enum class Source { screenshot, loggedAtFallback };
  std::int64_t ms = 0;
  Source source = Source::screenshot;

  /// The screenshot's time when it is known, else the time the verdict was logged.
  static ClassifierFrameInstant resolve(std::optional<std::int64_t> screenshotAtMs, std::int64_t loggedMs);
  /// What a person is told beside the frame.
  std::string disclosure(std::int64_t loggedAtMs) const;

  bool operator==(const ClassifierFrameInstant&) const = default;
};

}  // namespace halvo
