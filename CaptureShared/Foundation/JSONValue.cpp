#include "CaptureShared/Foundation/JSONValue.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace halvo {

namespace {
constexpr auto byKey = [](const JSONObject::Member& member, std::string_view key) { return member.first < key; };
}

JSONObject::JSONObject(std::initializer_list<Member> members) : JSONObject(make(std::vector<Member>(members))) {}

JSONObject JSONObject::make(std::vector<Member> members) {
  JSONObject object;
  auto keysAscend = [](const Member& a, const Member& b) { return a.first < b.first; };
  if (!std::is_sorted(members.begin(), members.end(), keysAscend)) std::stable_sort(members.begin(), members.end(), keysAscend);
  // Of equal keys, now neighbours in the order given, the last one stays.
  std::size_t kept = 0;
  for (std::size_t i = 0; i < members.size(); ++i) {
    if (i + 1 < members.size() && members[i + 1].first == members[i].first) continue;
    if (kept != i) members[kept] = std::move(members[i]);
    ++kept;
  }
  members.resize(kept);
  object.members_ = std::move(members);
  return object;
}

const JSONValue* JSONObject::find(std::string_view key) const {
  const auto at = std::lower_bound(members_.begin(), members_.end(), key, byKey);
  return at != members_.end() && at->first == key ? &at->second : nullptr;
}

void JSONObject::set(std::string key, JSONValue value) {
  const auto at = std::lower_bound(members_.begin(), members_.end(), std::string_view(key), byKey);
  if (at != members_.end() && at->first == key)
    at->second = std::move(value);
  else
    members_.insert(at, Member{std::move(key), std::move(value)});
}

void JSONObject::erase(std::string_view key) {
  const auto at = std::lower_bound(members_.begin(), members_.end(), key, byKey);
  if (at != members_.end() && at->first == key) members_.erase(at);
}

std::optional<std::string> JSONObject::string(std::string_view key) const {
  const auto* found = find(key);
  const auto* text = found ? found->stringValue() : nullptr;
  return text ? std::optional(*text) : std::nullopt;
}

std::optional<double> JSONObject::number(std::string_view key) const {
  const auto* found = find(key);
  return found ? found->numberValue() : std::nullopt;
}

std::optional<std::int64_t> JSONObject::integer(std::string_view key) const {
  const auto value = number(key);
  if (!value || !(std::abs(*value) < 9.2e18)) return std::nullopt;
  return static_cast<std::int64_t>(*value);
}

std::optional<bool> JSONObject::boolean(std::string_view key) const {
  const auto* found = find(key);
  return found ? found->boolValue() : std::nullopt;
}

std::optional<double> JSONValue::numberValue() const {
  const auto* number = std::get_if<double>(&storage_);
  return number ? std::optional(*number) : std::nullopt;
}

std::optional<bool> JSONValue::boolValue() const {
  const auto* flag = std::get_if<bool>(&storage_);
  return flag ? std::optional(*flag) : std::nullopt;
}

const JSONValue* JSONValue::find(std::string_view key) const {
  const auto* object = objectValue();
  return object ? object->find(key) : nullptr;
}

const JSONValue* JSONValue::at(std::initializer_list<std::string_view> path) const {
  const JSONValue* here = this;
  for (const auto step : path) {
    if (const auto* array = here->arrayValue()) {
      std::size_t index = 0;
      const auto [end, error] = std::from_chars(step.data(), step.data() + step.size(), index);
      if (error != std::errc() || end != step.data() + step.size() || index >= array->size()) return nullptr;
      here = &(*array)[index];
    } else {
      here = here->find(step);
      if (!here) return nullptr;
    }
  }
  return here;
}

}  // namespace halvo
