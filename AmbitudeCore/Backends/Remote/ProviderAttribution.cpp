#include "AmbitudeCore/Backends/Remote/ProviderAttribution.h"

#include <cmath>
#include <limits>

#include <fmt/format.h>

#include "CaptureShared/Foundation/Text.h"

namespace halvo::ProviderAttribution {

std::optional<std::string> reason(int status, std::string_view body) {
  if (status == 429) return "HTTP 429 (provider rate-limited)";
  if (status == 408) return "HTTP 408 (provider timed out)";
  if (status >= 500 && status <= 599) return fmt::format("HTTP {} (provider error)", status);
  const auto says = [&](std::string_view words) { return body.find(words) != std::string_view::npos; };
  if (status == 404 && (says("No allowed providers are available") || says("No endpoints found")))
    return "HTTP 404 (OpenRouter has no available endpoint for this provider)";
  return std::nullopt;
}

std::optional<int> errorCode(const JSONValue& payload) {
  const auto* code = payload.at({"error", "code"});
  if (!code) return std::nullopt;
  std::optional<std::int64_t> number;
  if (const auto value = code->numberValue(); value && std::trunc(*value) == *value && std::abs(*value) < 1e9)
    number = static_cast<std::int64_t>(*value);
  else if (const auto* text = code->stringValue())
    number = Text::parseInteger(*text);
  if (!number || std::abs(static_cast<double>(*number)) > std::numeric_limits<int>::max()) return std::nullopt;
  return static_cast<int>(*number);
}

}  // namespace halvo::ProviderAttribution
