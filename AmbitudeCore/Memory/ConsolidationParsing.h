#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "AmbitudeCore/Backends/ChatTypes.h"
#include "CaptureShared/Records/MemoryFact.h"
#include "CaptureShared/Records/MemoryThread.h"

/// What a model's reply to a nightly prompt says. Pure; absent for a reply that is not the JSON asked for.
namespace halvo::ConsolidationParsing {

struct Digest {
  std::string summary = {};
  std::vector<MemoryFact> facts = {};
  std::vector<std::string> lessons = {};
};
/// Everything from the first "{" to the last "}" as one object with a `summary`. Missing lists are empty, and an item that is no text or
/// has a blank one is left out. Line numbers count from 1 and become the times of those lines; others are ignored.
std::optional<Digest> digest(std::string_view reply, std::span<const std::int64_t> lineTsMs);

struct Regeneration {
  std::vector<MemoryThread> threads = {};
  std::vector<std::size_t> keepFactIndices = {};  ///< in the order of the list, each once
  std::vector<std::string> lessons = {};
};
/// All three lists must be there: a missing one would pass for "keep nothing". Indices outside the list are ignored.
std::optional<Regeneration> regeneration(std::string_view reply, std::size_t factCount);

/// Why a regeneration's reply could not be used.
std::string salvageDetail(const ChatResponse& response);

/// "  response head: ..." and "  response tail: ...", 200 characters each, on one line each, secrets replaced.
std::vector<std::string> excerptLines(std::string_view reply);

}  // namespace halvo::ConsolidationParsing
