#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "CaptureShared/Provisioning/LocalModelInstaller.h"

/// An install as a terminal or a window shows it.
namespace halvo {

class InstallProgressText {
 public:
  /// A terminal's line that can be written over is a bar; for any other output a line is made now and then; a window draws its own bar
  /// beside the words.
  enum class Style { bar, lines, words };
  explicit InstallProgressText(Style style) : style_(style) {}

  /// The text to show next, without a line's end or a carriage return; absent when nothing worth a line has changed. Every line names the
  /// file and what is done with it; a download also has bytes, speed and the time left.
  std::optional<std::string> next(const LocalModelInstaller::Progress& progress, std::int64_t nowMs);

 private:
  std::string text(const LocalModelInstaller::Progress& progress, std::int64_t nowMs) const;

  Style style_;
  std::optional<LocalModelInstaller::Stage> stage_;
  std::int64_t stageBeganMs_ = 0, stageBeganAtBytes_ = 0, shownTenth_ = -1;
};

/// "45 s", "12 min", "2 h 5 min".
std::string durationText(std::int64_t seconds);

}  // namespace halvo
