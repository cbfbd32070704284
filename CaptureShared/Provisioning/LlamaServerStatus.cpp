#include "CaptureShared/Provisioning/LlamaServerStatus.h"

#include <system_error>

#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/Translation.h"
#include "CaptureShared/Foundation/UserFolders.h"

namespace halvo {

std::filesystem::path LlamaServerStatus::url(const Environment& environment) { return UserFolders::supportDir(environment) / fileName; }

std::optional<LlamaServerStatus> LlamaServerStatus::read(const std::filesystem::path& from) {
  try {
    return decode(readFile(from));
  } catch (const std::system_error&) {
    return std::nullopt;
  }
}

std::optional<LlamaServerStatus> LlamaServerStatus::decode(std::string_view json) {
  const auto value = JSONValue::parse(json);
  const auto* object = value ? value->objectValue() : nullptr;
  if (!object) return std::nullopt;
  const auto state = fromRawValue<State>(object->string("state").value_or(""));
  const auto at = ISO8601::parse(object->string("at").value_or(""));
  const auto model = object->string("model");
  if (!state || !at || !model) return std::nullopt;
  return LlamaServerStatus{.state = *state, .model = *model, .message = object->string("message").value_or(""), .atMs = *at};
}

std::string LlamaServerStatus::encode() const {
  const JSONObject row{
      {"state", rawValue(state)}, {"model", Text::scrubbed(model)}, {"message", Text::scrubbed(message)}, {"at", ISO8601::utcMillis(atMs)}};
  return JSONValue(row).dumpPretty() + "\n";
}

void LlamaServerStatus::write(const std::filesystem::path& to) const { writeFileAtomically(to, encode()); }

std::string LlamaServerStatus::healthMessage() const {
  switch (state) {
    case State::starting:
      return tr("the local model is starting");
    case State::modelMissing:
      return tr("{} hasn't been downloaded", model);
    case State::checksumMismatch:
      return tr("{}'s files failed their checksum — download it again", model);
    case State::unknownModel:
      return tr("there's no download for {}", model);
    case State::runtimeMissing:
      return tr("this copy of Halvo is missing its model runtime — reinstall Halvo");
    case State::failed:
      return tr("the local model couldn't start ({})", message);
  }
  return {};
}

}  // namespace halvo
