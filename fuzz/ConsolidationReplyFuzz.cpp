// Replies to the nightly prompts: whatever a model says, what is taken from it survives the way to disk and back, and names only what there
// is.

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "AmbitudeCore/Memory/ConsolidationParsing.h"
#include "CaptureShared/Records/PeriodDigest.h"
#include "CaptureShared/Records/StandingMemory.h"

using namespace halvo;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view reply(reinterpret_cast<const char*>(data), size);
  const std::int64_t lines[] = {1'764'007'200'000, 1'764'007'260'000};
  if (auto found = ConsolidationParsing::digest(reply, lines)) {
    const PeriodDigest digest{.summary = found->summary, .facts = found->facts, .lessons = found->lessons};
    if (PeriodDigest::decode(JSONValue::parse(digest.encoded().dump()).value()) != digest) std::abort();
  }
  if (auto found = ConsolidationParsing::regeneration(reply, 3)) {
    for (const auto index : found->keepFactIndices)
      if (index >= 3) std::abort();
    const StandingMemory memory{.threads = found->threads, .lessons = found->lessons};
    if (StandingMemory::decode(JSONValue::parse(memory.encoded().dump()).value()) != memory) std::abort();
  }
  ConsolidationParsing::excerptLines(reply);
  return 0;
}
