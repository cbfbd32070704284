#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "CaptureShared/Foundation/Translation.h"

/// The ages that a person is offered.
namespace halvo::RetentionPresets {

struct Preset {
  std::int64_t days;
  const char* label;  ///< not translated yet
};
inline constexpr std::int64_t defaultDays = 7;
inline constexpr std::array<Preset, 8> all{{{1, trMark("1 day")},
                                            {3, trMark("3 days")},
                                            {7, trMark("1 week")},
                                            {14, trMark("2 weeks")},
                                            {30, trMark("1 month")},
                                            {90, trMark("3 months")},
                                            {180, trMark("6 months")},
                                            {365, trMark("1 year")}}};

/// A preset's label, or "5 days".
inline std::string label(std::int64_t forDays) {
  for (const auto& preset : all)
    if (preset.days == forDays) return tr(preset.label);
  return tr("{} days", forDays);
}

}  // namespace halvo::RetentionPresets
