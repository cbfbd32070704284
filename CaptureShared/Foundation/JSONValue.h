#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace halvo {

class JSONValue;

/// The members of a JSON object, kept sorted by key in one block of memory. Setting a key twice keeps the last value.
class JSONObject {
 public:
  using Member = std::pair<std::string, JSONValue>;

  JSONObject();
  JSONObject(std::initializer_list<Member> members);
  JSONObject(const JSONObject&);
  JSONObject(JSONObject&&) noexcept;
  JSONObject& operator=(const JSONObject&);
  JSONObject& operator=(JSONObject&&) noexcept;
  ~JSONObject();
  /// Takes members in any order; of equal keys the last one stays.
  static JSONObject make(std::vector<Member> members);

  const JSONValue* find(std::string_view key) const;
  bool contains(std::string_view key) const { return find(key) != nullptr; }
  void set(std::string key, JSONValue value);
  void erase(std::string_view key);

  std::size_t size() const;
  bool empty() const;
  /// The members in key order.
  const Member* begin() const;
  const Member* end() const;

  /// The string at `key`; absent when the key is missing or holds anything else.
  std::optional<std::string> string(std::string_view key) const;
  /// The number at `key`, truncated toward zero; absent when it is missing, not a number, or outside 64 bits.
  std::optional<std::int64_t> integer(std::string_view key) const;
  std::optional<double> number(std::string_view key) const;
  std::optional<bool> boolean(std::string_view key) const;

  bool operator==(const JSONObject&) const;

 private:
  std::vector<Member> members_;
};

/// A JSON value as every log and request carries it. Numbers are doubles (whole ones print without a decimal point, and
/// times in milliseconds are exact); a bool is never a number.
class JSONValue {
 public:
  using Array = std::vector<JSONValue>;
  using Object = JSONObject;
  using Storage = std::variant<std::nullptr_t, bool, double, std::string, Array, Object>;

  JSONValue() : storage_(nullptr) {}
  JSONValue(std::nullptr_t) : storage_(nullptr) {}
  JSONValue(bool value) : storage_(value) {}
  JSONValue(double value) : storage_(value) {}
  JSONValue(int value) : storage_(static_cast<double>(value)) {}
  JSONValue(std::int64_t value) : storage_(static_cast<double>(value)) {}
  JSONValue(std::string value) : storage_(std::move(value)) {}
  JSONValue(std::string_view value) : storage_(std::in_place_type<std::string>, value) {}
  JSONValue(const char* value) : storage_(std::string(value)) {}
  JSONValue(Array value) : storage_(std::move(value)) {}
  JSONValue(Object value) : storage_(std::move(value)) {}
  /// An absent optional is JSON null.
  template <class T>
  static JSONValue orNull(const std::optional<T>& value) {
    return value ? JSONValue(*value) : JSONValue();
  }

  /// Parses one whole JSON text. Absent when it is not valid JSON or not valid UTF-8; never throws.
  static std::optional<JSONValue> parse(std::string_view text);

  bool isNull() const { return std::holds_alternative<std::nullptr_t>(storage_); }
  const std::string* stringValue() const { return std::get_if<std::string>(&storage_); }
  const Object* objectValue() const { return std::get_if<Object>(&storage_); }
  const Array* arrayValue() const { return std::get_if<Array>(&storage_); }
  std::optional<double> numberValue() const;
  std::optional<bool> boolValue() const;
  Object* mutableObject() { return std::get_if<Object>(&storage_); }

  /// The member at `key` when this is an object that has it, else null.
  const JSONValue* find(std::string_view key) const;
  /// The value behind a chain of keys and array positions ("choices", 0, "message" as {"choices", "0", "message"}).
  const JSONValue* at(std::initializer_list<std::string_view> path) const;

  /// One line, keys sorted, no blanks. Throws `JSONEncodingError` when a string is not valid UTF-8 or a number not finite.
  std::string dump() const;
  /// Two blanks a level, keys sorted, " : " not used (plain ": "), no newline at the end. Throws as `dump`.
  std::string dumpPretty() const;

  const Storage& storage() const { return storage_; }
  bool operator==(const JSONValue&) const = default;

 private:
  Storage storage_;
};

// Here, where a member's value is a whole type.
inline JSONObject::JSONObject() = default;
inline JSONObject::JSONObject(const JSONObject&) = default;
inline JSONObject::JSONObject(JSONObject&&) noexcept = default;
inline JSONObject& JSONObject::operator=(const JSONObject&) = default;
inline JSONObject& JSONObject::operator=(JSONObject&&) noexcept = default;
inline JSONObject::~JSONObject() = default;
inline std::size_t JSONObject::size() const { return members_.size(); }
inline bool JSONObject::empty() const { return members_.empty(); }
inline const JSONObject::Member* JSONObject::begin() const { return members_.data(); }
inline const JSONObject::Member* JSONObject::end() const { return members_.data() + members_.size(); }
inline bool JSONObject::operator==(const JSONObject& other) const { return members_ == other.members_; }

/// A value has no JSON text: a string that is not UTF-8, or a number that is not finite.
class JSONEncodingError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace halvo
