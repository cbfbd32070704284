#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>

#include "CaptureShared/Records/CaptureWindowSummary.h"

namespace halvo::CaptureWindowReader {

inline constexpr int defaultWindowMinutes = 15;

struct Request {
  std::filesystem::path signalsPath = {};
  std::int64_t asOfMs = 0;
  int windowMinutes = defaultWindowMinutes;
};
/// The last minutes by app; absent when the store can't be read.
std::optional<CaptureWindowSummary> read(const Request& request);

}  // namespace halvo::CaptureWindowReader
