#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "CaptureShared/DataRoot/AgentConfig.h"
#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Intention/CurrentIntention.h"

/// Settings hold allowed keys alone, and a malformed file has none; JSON that parses survives a round trip; an intention has a task.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace halvo;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto parsed = AgentConfig::parse(text);
  if (parsed.isMalformed() && !parsed.settings.empty()) std::abort();
  for (const auto& [key, value] : parsed.settings)
    if (!AgentConfig::isAllowed(key)) std::abort();
  if (const auto value = JSONValue::parse(text))
    if (JSONValue::parse(value->dump()) != value) std::abort();
  if (const auto intention = CurrentIntention::parse(text); intention && intention->task.empty()) std::abort();
  return 0;
}
