#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

#include "CaptureShared/Records/CoachCorrection.h"

/// What the person told Lark about how to behave, for whoever shows it. The file counts; while there is none, the event log does.
namespace halvo::Corrections {

/// Oldest first. Throws `std::system_error` when they can't be read.
std::vector<CoachCorrection> list(const std::filesystem::path& root);
/// Deletes the one that was recorded at `atMs`; false when there is none. Throws as `CoachCorrectionsLog::erase`.
bool erase(std::int64_t atMs, const std::filesystem::path& root);

}  // namespace halvo::Corrections
