#pragma once

#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace halvo {

/// A JSON value whose object keys stay in the order given. Prompts carry it, where every byte's place matters. It has no bool.
class OrderedJSON {
 public:
  using Array = std::vector<OrderedJSON>;
  using Object = std::vector<std::pair<std::string, OrderedJSON>>;

  OrderedJSON() : storage_(nullptr) {}
  OrderedJSON(double value) : storage_(value) {}
  OrderedJSON(std::string value) : storage_(std::move(value)) {}
  OrderedJSON(const char* value) : storage_(std::string(value)) {}
  OrderedJSON(Array value) : storage_(std::move(value)) {}
  OrderedJSON(Object value) : storage_(std::move(value)) {}

  static OrderedJSON stringOrNull(const std::optional<std::string>& value);
  static OrderedJSON numberOrNull(const std::optional<double>& value);

  /// The text at a nesting level, two blanks a level. Numbers print with one decimal place, always; everything outside
  /// blank..tilde is escaped, beyond U+FFFF as a surrogate pair. Bytes that are not UTF-8 come out as \ufffd.
  std::string render(int indent) const;

  bool operator==(const OrderedJSON&) const = default;

 private:
  std::variant<std::nullptr_t, double, std::string, Array, Object> storage_;
};

}  // namespace halvo
