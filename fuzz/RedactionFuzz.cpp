#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Privacy/OutboundTitlePrivacy.h"
#include "CaptureShared/Privacy/ScreenText.h"
#include "CaptureShared/Privacy/SensitiveIdentifierRedaction.h"

/// Redacting twice changes nothing; a text made fit for a prompt is one line without a plain double quote.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace halvo;
  const auto text = Text::scrubbed(std::string_view(reinterpret_cast<const char*>(data), size));
  RedactionReport report;
  const auto once = SensitiveIdentifierRedaction::redact(text, SensitiveIdentifierRedaction::Scope::outbound, report);
  if (SensitiveIdentifierRedaction::redact(once, SensitiveIdentifierRedaction::Scope::outbound, report) != once) std::abort();
  const auto title = OutboundTitlePrivacy::sanitize(std::string_view(text));
  const auto shown = ScreenText::sanitize(text, ScreenText::reasonCap);
  if (!Text::isValidUTF8(once) || !Text::isValidUTF8(title) || shown.find_first_of("\"\n\r") != std::string::npos) std::abort();
  return 0;
}
