// The one file that knows the JSON writer.
#include <cmath>
#include <nlohmann/json.hpp>

#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Foundation/Match.h"

namespace halvo {

namespace {

nlohmann::ordered_json toLibrary(const JSONValue& value) {
  using Library = nlohmann::ordered_json;
  return match(
      value.storage(), [](std::nullptr_t) -> Library { return nullptr; }, [](bool flag) -> Library { return flag; },
      [](double number) -> Library {
        if (!std::isfinite(number)) throw JSONEncodingError("a number is not finite");
        // Beyond 2^53 a double holds no more digits than it prints itself.
        if (number == std::trunc(number) && std::abs(number) <= 9007199254740992.0) return static_cast<std::int64_t>(number);
        return number;
      },
      [](const std::string& text) -> Library { return text; },
      [](const JSONValue::Array& items) {
        auto array = Library::array();
        for (const auto& item : items) array.push_back(toLibrary(item));
        return array;
      },
      [](const JSONValue::Object& members) {
        auto object = Library::object();
        // Members come sorted and unique, so the linear look-up of operator[] would only cost.
        auto& storage = object.get_ref<Library::object_t&>();
        storage.reserve(members.size());
        for (const auto& [key, member] : members) storage.emplace_back(key, toLibrary(member));
        return object;
      });
}

std::string dumpWith(const JSONValue& value, int indent) {
  try {
    return toLibrary(value).dump(indent);
  } catch (const nlohmann::json::exception& error) {
    throw JSONEncodingError(error.what());
  }
}

}  // namespace

std::string JSONValue::dump() const { return dumpWith(*this, -1); }
std::string JSONValue::dumpPretty() const { return dumpWith(*this, 2); }

}  // namespace halvo
