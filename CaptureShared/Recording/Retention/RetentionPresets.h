#pragma once

#include <array>
#include <cstdint>
#include <string>

/// The ages that a person is offered.
namespace halvo::RetentionPresets {

struct Preset {
  std::int64_t days;
  const char* label;
};
inline constexpr std::int64_t defaultDays = 7;
inline constexpr std::array<Preset, 8> all{{{1, "1 day"},
                                            {3, "3 days"},
                                            {7, "1 week"},
                                            {14, "2 weeks"},
                                            {30, "1 month"},
                                            {90, "3 months"},
                                            {180, "6 months"},
                                            {365, "1 year"}}};

/// A preset's label, or "5 days".
inline std::string label(std::int64_t forDays) {
  for (const auto& preset : all)
    if (preset.days == forDays) return preset.label;
  return std::to_string(forDays) + " days";
}

}  // namespace halvo::RetentionPresets
