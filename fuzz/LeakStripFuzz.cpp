#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "AmbitudeCore/Coach/CoachSanityChecks.h"
#include "CaptureShared/Foundation/Text.h"

/// What the strip leaves has nothing left to strip, is never longer than what came, and stays sound UTF-8.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto text = halvo::Text::scrubbed(std::string_view(reinterpret_cast<const char*>(data), size));
  const auto out = halvo::CoachSanityChecks::stripLeakedToolCallSyntaxUncached(text);
  if (out.size() > text.size() || !halvo::Text::isValidUTF8(out)) std::abort();
  if (halvo::CoachSanityChecks::stripLeakedToolCallSyntaxUncached(out) != out) std::abort();
  return 0;
}
