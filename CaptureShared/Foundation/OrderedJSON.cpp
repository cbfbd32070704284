#include "CaptureShared/Foundation/OrderedJSON.h"

#include <fmt/format.h>

#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo {

namespace {

void appendEscaped(std::string& out, std::string_view text) {
  out += '"';
  for (std::size_t at = 0; at < text.size();) {
    const char32_t c = Text::nextCodePoint(text, at);
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\b': out += "\\b"; break;
      case '\t': out += "\\t"; break;
      case '\n': out += "\\n"; break;
      case '\f': out += "\\f"; break;
      case '\r': out += "\\r"; break;
      default:
        if (c >= ' ' && c <= '~') {
          out += static_cast<char>(c);
        } else if (c <= 0xFFFF) {
          out += fmt::format("\\u{:04x}", static_cast<unsigned>(c));
        } else {
          const auto rest = static_cast<unsigned>(c) - 0x10000;
          out += fmt::format("\\u{:04x}\\u{:04x}", 0xD800 + (rest >> 10), 0xDC00 + (rest & 0x3FF));
        }
    }
  }
  out += '"';
}

}  // namespace

OrderedJSON OrderedJSON::stringOrNull(const std::optional<std::string>& value) { return value ? OrderedJSON(*value) : OrderedJSON(); }
OrderedJSON OrderedJSON::numberOrNull(const std::optional<double>& value) { return value ? OrderedJSON(*value) : OrderedJSON(); }

std::string OrderedJSON::render(int indent) const {
  const std::string outer(static_cast<std::size_t>(indent) * 2, ' ');
  const std::string inner(static_cast<std::size_t>(indent + 1) * 2, ' ');
  return match(
      storage_, [](std::nullptr_t) { return std::string("null"); }, [](double number) { return fmt::format("{:.1f}", number); },
      [](const std::string& text) {
        std::string out;
        appendEscaped(out, text);
        return out;
      },
      [&](const Array& items) {
        if (items.empty()) return std::string("[]");
        std::string out = "[\n";
        for (std::size_t i = 0; i < items.size(); ++i) out += (i ? ",\n" : "") + inner + items[i].render(indent + 1);
        return out + "\n" + outer + "]";
      },
      [&](const Object& members) {
        if (members.empty()) return std::string("{}");
        std::string out = "{\n";
        for (std::size_t i = 0; i < members.size(); ++i) {
          out += (i ? ",\n" : "") + inner;
          appendEscaped(out, members[i].first);
          out += ": " + members[i].second.render(indent + 1);
        }
        return out + "\n" + outer + "}";
      });
}

}  // namespace halvo
