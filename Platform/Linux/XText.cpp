#include "Platform/Linux/XText.h"

#include "CaptureShared/Foundation/Text.h"

namespace halvo::XText {

std::string decoded(std::string_view bytes, bool isUTF8) {
  bytes = bytes.substr(0, bytes.find('\0'));
  if (Text::isValidUTF8(bytes)) return std::string(bytes);
  if (isUTF8) return Text::scrubbed(bytes);
  std::string text;
  for (const char byte : bytes) Text::appendCodePoint(text, static_cast<unsigned char>(byte));
  return text;
}

std::string className(std::string_view wmClass) {
  const auto firstEnd = wmClass.find('\0');
  auto instance = decoded(wmClass, false);
  auto name = firstEnd == std::string_view::npos ? std::string() : decoded(wmClass.substr(firstEnd + 1), false);
  return Text::isBlank(name) ? (Text::isBlank(instance) ? std::string() : instance) : name;
}

}  // namespace halvo::XText
