#include "AmbitudeCore/Gate/CallHoldControl.h"

#include <system_error>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo {
namespace {
bool isEnabled(const Environment& environment) {
  const auto given = value(environment, "AMBITCAP_CALL_PAUSE");
  if (!given) return true;
  const auto word = Text::lower(Text::trim(*given));
  return word != "0" && word != "false" && word != "no" && word != "off";
}

std::optional<CallHoldControl::Override> readOverride(const std::filesystem::path& file) {
  try {
    const auto parsed = JSONValue::parse(readFile(file));
    const auto* object = parsed ? parsed->objectValue() : nullptr;
    if (!object) return std::nullopt;
    const auto episode = object->integer("episode_start_ms");
    const auto at = object->integer("overridden_at_ms");
    if (!episode || !at) return std::nullopt;
    return CallHoldControl::Override{.episodeStartMs = *episode, .overriddenAtMs = *at};
  } catch (const std::system_error&) {
    return std::nullopt;
  }
}
}  // namespace

CallHoldControl CallHoldControl::read(const Environment& environment, const std::filesystem::path& overrideFile) {
  return {.enabled = isEnabled(environment), .override_ = readOverride(overrideFile)};
}

}  // namespace halvo
