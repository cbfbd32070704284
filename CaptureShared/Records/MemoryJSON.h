#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Records/MemoryFact.h"
#include "CaptureShared/Records/MemoryThread.h"

/// The lists inside the memory files. Every reader is strict: absent for a list that is missing or holds anything else, so that a damaged
/// file never passes for a shorter memory.
namespace halvo::MemoryJSON {

JSONValue encoded(const std::vector<std::string>& texts);
JSONValue encoded(const std::vector<std::int64_t>& times);
JSONValue encoded(const std::vector<MemoryFact>& facts);
JSONValue encoded(const std::vector<MemoryThread>& threads);

std::optional<std::vector<std::string>> texts(const JSONValue* value);
std::optional<std::vector<std::int64_t>> times(const JSONValue* value);
/// A provenance other than "asserted" is inferred.
std::optional<std::vector<MemoryFact>> facts(const JSONValue* value);
/// An unknown status is active.
std::optional<std::vector<MemoryThread>> threads(const JSONValue* value);

}  // namespace halvo::MemoryJSON
