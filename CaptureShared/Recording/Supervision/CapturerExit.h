#pragma once

#include <cstdint>
#include <exception>
#include <optional>
#include <string_view>

/// The codes with which `Capturer` says why it ended. Any other code is a crash.
namespace halvo::CapturerExit {

inline constexpr std::int32_t noDisplaysAvailable = 69;
inline constexpr std::int32_t videoKeyUnreadable = 71;
inline constexpr std::int32_t ffmpegMissing = 72;
inline constexpr std::int32_t videoKeyMissing = 73;
inline constexpr std::int32_t videoSinkFailed = 74;
inline constexpr std::int32_t dataRootFull = 75;
inline constexpr std::int32_t videoKeyLocked = 76;
inline constexpr std::int32_t screenRecordingDenied = 77;

/// True for the eight above and nothing else.
bool isExplained(std::int32_t code);
/// True for the three of the key.
bool isVideoKeyUnavailable(std::int32_t code);

/// The code of what kept the recorder from starting: `FFmpegResolver::NotFound`, `VideoArchiveKeyStore::KeyError`, or a
/// `ScreenCaptureError` of the kinds `refused` and `noDisplay`. Absent for anything else, which is a crash.
std::optional<std::int32_t> startupCode(const std::exception& error);

/// Whether a capture service's own error means that the person has not allowed recording.
bool isScreenRecordingDenied(std::string_view domain, std::int64_t code);
/// Whether the display is there and does not show itself to us.
bool isScreenRecordingDenied(const std::exception& error);

}  // namespace halvo::CapturerExit
