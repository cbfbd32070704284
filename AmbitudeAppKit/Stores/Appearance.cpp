#include "AmbitudeAppKit/Stores/Appearance.h"

#include <algorithm>
#include <system_error>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Foundation/UserFolders.h"

namespace halvo {

namespace {

constexpr std::size_t longest = 4'096;

}  // namespace

std::filesystem::path Appearance::path(const Environment& environment) { return UserFolders::supportDir(environment) / "appearance.json"; }

Appearance Appearance::decode(std::string_view text) {
  Appearance appearance;
  const auto json = JSONValue::parse(text);
  const auto* object = json ? json->objectValue() : nullptr;
  if (!object) return appearance;
  appearance.mode = fromRawValue<Mode>(object->string("mode").value_or("")).value_or(Mode::automatic);
  const auto size = std::ranges::find(textSizes, object->integer("text_percent").value_or(0));
  if (size != textSizes.end()) appearance.textPercent = *size;
  return appearance;
}

std::string Appearance::encode() const {
  return JSONValue(JSONObject{{"mode", rawValue(mode)}, {"text_percent", textPercent}}).dumpPretty() + "\n";
}

Appearance Appearance::read(const std::filesystem::path& from) {
  try {
    // Ours is a hundred bytes: whatever is longer is none, and is not waited for.
    return decode(FileHandle::openForRead(from).readAt(0, longest));
  } catch (const std::system_error&) {
    return {};
  }
}

void Appearance::write(const std::filesystem::path& to) const {
  std::filesystem::create_directories(to.parent_path());
  writeFileAtomically(to, encode());
}

}  // namespace halvo
