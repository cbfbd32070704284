#pragma once

#include <array>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>

#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Foundation/RawValue.h"

namespace halvo {

/// How the windows look. "appearance.json" in the support folder: {"mode": "dark", "text_percent": 150}.
struct Appearance {
  enum class Mode { automatic, light, dark };
  static constexpr std::array textSizes{100, 125, 150, 200};  ///< percent of the desktop's own text

  Mode mode = Mode::automatic;
  int textPercent = textSizes.front();
  bool operator==(const Appearance&) const = default;

  static std::filesystem::path path(const Environment& environment);
  /// What is missing, unreadable or not on offer is as in a new installation. Never throws.
  static Appearance read(const std::filesystem::path& from);
  static Appearance decode(std::string_view text);
  std::string encode() const;
  /// Replaces the file, and makes its folder first. Throws `std::system_error`.
  void write(const std::filesystem::path& to) const;
};

template <>
struct RawValues<Appearance::Mode> {
  static constexpr std::array table{std::pair{Appearance::Mode::automatic, "automatic"}, std::pair{Appearance::Mode::light, "light"},
                                    std::pair{Appearance::Mode::dark, "dark"}};
};

}  // namespace halvo
