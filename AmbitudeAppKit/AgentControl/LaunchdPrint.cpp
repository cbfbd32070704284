#include "AmbitudeAppKit/AgentControl/LaunchdPrint.h"

#include <limits>

#include "CaptureShared/Foundation/Text.h"

namespace halvo {

namespace {

std::optional<std::int32_t> narrow(const std::optional<std::int64_t>& number) {
  using Limits = std::numeric_limits<std::int32_t>;
  if (!number || *number < Limits::min() || *number > Limits::max()) return std::nullopt;
  return static_cast<std::int32_t>(*number);
}

}  // namespace

std::optional<std::string> LaunchdPrint::field(std::string_view text, std::string_view key) {
  constexpr std::string_view separator = " = ";
  for (const auto line : Text::split(text, '\n')) {
    const auto at = line.find(separator);
    if (at == std::string_view::npos || Text::trim(line.substr(0, at)) != key) continue;
    const auto value = Text::trim(line.substr(at + separator.size()));
    if (value.empty()) return std::nullopt;
    return std::string(value);
  }
  return std::nullopt;
}

LaunchdPrint LaunchdPrint::parse(std::string_view text) {
  const auto integer = [&](std::string_view key) -> std::optional<std::int64_t> {
    const auto value = field(text, key);
    return value ? Text::parseInteger(*value) : std::nullopt;
  };
  return {.pid = narrow(integer("pid")),
          .lastExitCode = narrow(integer("last exit code")),
          .runs = integer("runs"),
          .program = field(text, "program"),
          .path = field(text, "path")};
}

}  // namespace halvo
