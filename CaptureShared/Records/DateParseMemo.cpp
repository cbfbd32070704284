#include "CaptureShared/Records/DateParseMemo.h"

#include <mutex>
#include <string>
#include <unordered_map>

#include "CaptureShared/Foundation/Calendar.h"

namespace halvo::DateParseMemo {

namespace {

constexpr std::size_t maxEntries = 1'048'576;

struct TextHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>{}(text); }
};

struct Table {
  std::mutex mutex;
  std::unordered_map<std::string, std::optional<std::int64_t>, TextHash, std::equal_to<>> entries;
};

Table& table() {
  static Table table;
  return table;
}

}  // namespace

std::optional<std::int64_t> milliseconds(std::string_view text) {
  auto& memo = table();
  {
    const std::lock_guard hold(memo.mutex);
    if (const auto found = memo.entries.find(text); found != memo.entries.end()) return found->second;
  }
  const auto parsed = ISO8601::parse(text);
  const std::lock_guard hold(memo.mutex);
  if (memo.entries.size() >= maxEntries) memo.entries.clear();
  memo.entries.emplace(text, parsed);
  return parsed;
}

}  // namespace halvo::DateParseMemo
