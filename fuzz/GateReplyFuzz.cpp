#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "AmbitudeCore/Gate/CoachGateSchema.h"

/// A decision that was read is read again from prose around it; whatever else comes is a failure with a reason.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string reply(reinterpret_cast<const char*>(data), size);
  const auto outcome = halvo::CoachGateSchema::parse(reply);
  if (const auto* failed = std::get_if<halvo::GateFailed>(&outcome)) {
    if (failed->reason.empty()) std::abort();
  } else if (halvo::CoachGateSchema::parse("So: " + reply + " That is all.") != outcome) {
    std::abort();
  }
  return 0;
}
