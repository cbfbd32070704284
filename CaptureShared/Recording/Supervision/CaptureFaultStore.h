#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Foundation/Log.h"
#include "CaptureShared/Recording/Supervision/CaptureFault.h"

/// `capture-fault.json`, outside the data root: a fault can be read while the data volume is away.
namespace halvo::CaptureFaultStore {

namespace fs = std::filesystem;

inline constexpr double staleAfter = 1'800;  ///< seconds; an older fault is not shown

/// In the support folder.
fs::path path(const Environment& environment);

/// Absent when there is no file, or none that holds a fault. A kind of a newer build reads as `other`. Never throws.
std::optional<CaptureFault> read(const fs::path& from);
/// Replaces the file, and makes its folder first. Throws `std::system_error`, and `JSONEncodingError` for a detail that is not UTF-8.
void write(const CaptureFault& fault, const fs::path& to);
/// Throws `std::system_error`; a file that is not there is no failure.
void clear(const fs::path& at);

struct Record {
  CaptureFault::Kind kind = CaptureFault::Kind::other;
  std::string detail = {};
  int consecutiveFailures = 1;
  std::int64_t nowMs = 0;
  fs::path file = {};
  LogSink log = {};
};
/// Writes a fault as of now. While the file has the same kind and isn't stale, its beginning stays. One that can't be written is logged;
/// never throws.
void recordDirectly(const Record& record);

/// Whether it was last seen more than `staleAfter` before.
bool isStale(const CaptureFault& fault, std::int64_t nowMs);

}  // namespace halvo::CaptureFaultStore
