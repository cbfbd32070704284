#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/RawValue.h"

namespace halvo {

/// What the person wants of the recorder: whether it rests, and how large its pictures are. `recording-controls.json` under the data root.
struct RecordingControls {
  enum class Quality {
    full,    ///< as wide as the display
    compact  ///< at most `compactWidth`
  };
  static constexpr int compactWidth = 1280;  ///< pixels

  std::optional<std::int64_t> pausedAtMs = {};
  std::optional<std::int64_t> pausedUntilMs = {};  ///< absent: until the person resumes
  Quality quality = Quality::full;
  bool isUnreadable = false;  ///< a file is there and says nothing that can be read. Not on disk
  bool operator==(const RecordingControls&) const = default;

  /// An unreadable file counts as a pause: nobody who paused is recorded because a file broke.
  bool isPaused(std::int64_t nowMs) const;
  /// At most so wide is a picture, in pixels; 0: as wide as the display.
  int widthTarget() const { return quality == Quality::compact ? compactWidth : 0; }
  /// What recording is: "paused until 16:30", "paused since Nov 24, 16:30", "not paused".
  std::string words(std::int64_t nowMs, const Calendar& calendar) const;

  /// A pause that is in force keeps its beginning.
  RecordingControls paused(std::int64_t nowMs, std::optional<std::int64_t> untilMs) const;
  RecordingControls resumed() const;
  /// What is paused stays so, an unreadable file included.
  RecordingControls with(Quality wanted, std::int64_t nowMs) const;

  static std::filesystem::path path(const std::filesystem::path& dataRoot);
  /// Absent when the text is no object, a key holds another type, or the quality is none that this build knows.
  static std::optional<RecordingControls> decode(std::string_view text);
  std::string encode() const;
  /// Without a file: not paused, full. Never throws.
  static RecordingControls read(const std::filesystem::path& dataRoot);
  /// Replaces the file. Throws `std::system_error`.
  void write(const std::filesystem::path& dataRoot) const;
};

template <>
struct RawValues<RecordingControls::Quality> {
  static constexpr std::array table{std::pair{RecordingControls::Quality::full, "full"},
                                    std::pair{RecordingControls::Quality::compact, "compact"}};
};

}  // namespace halvo
