#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>

#include "CaptureShared/Foundation/Log.h"
#include "CaptureShared/Records/EventLogEvent.h"

/// The fixed instant before which the coach reads nothing, so that history from before it existed never enters its prompts and a later run
/// can't move the start of the conversation. Pinned once in `io-layer/layer3-floor.json`, {"floorTsMs": milliseconds}, then never moved.
namespace halvo::Layer3Floor {

std::filesystem::path path(const std::filesystem::path& dataRoot);

/// The floor, pinned now if it never was: at the start of a first-run setup that no reset undid, else at `asOfMs`. A floor that can't be
/// persisted is still answered, and pinned again next time. Absent, told in one log line, when a floor file is there but can't be read or
/// decoded: pinning over it would silently pull old history in or cut recent history off. Never throws.
std::optional<std::int64_t> resolve(const std::filesystem::path& dataRoot, std::int64_t asOfMs, std::span<const EventLogEvent> events,
                                    const LogSink& log);

}  // namespace halvo::Layer3Floor
