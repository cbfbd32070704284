// The one file that knows the JSON reader.
#include <simdjson.h>

#include "CaptureShared/Foundation/JSONParse.h"
#include "CaptureShared/Foundation/JSONValue.h"

namespace halvo {

JSONValue fromElement(simdjson::dom::element element) {
  switch (element.type()) {
    case simdjson::dom::element_type::OBJECT: {
      const auto object = element.get_object().value_unsafe();
      std::vector<JSONObject::Member> members;
      members.reserve(object.size());
      for (const auto [key, value] : object) {
        std::string_view text;
        if (!value.get_string().get(text))
          members.emplace_back(key, text);  // made where it stays: most values are texts
        else
          members.emplace_back(key, fromElement(value));
      }
      return JSONObject::make(std::move(members));
    }
    case simdjson::dom::element_type::ARRAY: {
      const auto array = element.get_array().value_unsafe();
      JSONValue::Array items;
      items.reserve(array.size());
      for (const auto item : array) items.push_back(fromElement(item));
      return items;
    }
    case simdjson::dom::element_type::STRING:
      return std::string_view(element.get_string().value_unsafe());
    case simdjson::dom::element_type::INT64:
      return element.get_int64().value_unsafe();
    case simdjson::dom::element_type::UINT64:
      return static_cast<double>(element.get_uint64().value_unsafe());
    case simdjson::dom::element_type::DOUBLE:
      return element.get_double().value_unsafe();
    case simdjson::dom::element_type::BOOL:
      return element.get_bool().value_unsafe();
    case simdjson::dom::element_type::NULL_VALUE:
      return nullptr;
  }
  return nullptr;
}

std::optional<JSONValue> JSONValue::parse(std::string_view text) {
  if (text.empty()) return std::nullopt;
  thread_local simdjson::dom::parser parser;
  const auto parsed = parser.parse(text.data(), text.size());
  if (parsed.error()) return std::nullopt;
  return fromElement(parsed.value_unsafe());
}

}  // namespace halvo
