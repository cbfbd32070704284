#include "CaptureShared/Recording/Supervision/CaptureFaultStore.h"

#include <algorithm>
#include <limits>
#include <system_error>

#include <fmt/format.h>

#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Foundation/UserFolders.h"

namespace halvo::CaptureFaultStore {

namespace {

std::optional<std::int64_t> timeAt(const JSONObject& object, std::string_view key) {
  const auto text = object.string(key);
  return text ? ISO8601::parse(*text) : std::nullopt;
}

std::optional<CaptureFault> decode(std::string_view text) {
  const auto json = JSONValue::parse(text);
  if (!json || !json->objectValue()) return std::nullopt;
  const auto& object = *json->objectValue();
  const auto kind = object.string("kind");
  const auto since = timeAt(object, "since"), updatedAt = timeAt(object, "updatedAt");
  if (!kind || !since || !updatedAt) return std::nullopt;
  const auto failures = std::clamp<std::int64_t>(object.integer("consecutiveFailures").value_or(0), 0, std::numeric_limits<int>::max());
  return CaptureFault{.kind = fromRawValue<CaptureFault::Kind>(*kind).value_or(CaptureFault::Kind::other),
                      .sinceMs = *since,
                      .updatedAtMs = *updatedAt,
                      .consecutiveFailures = static_cast<int>(failures),
                      .detail = object.string("detail").value_or("")};
}

}  // namespace

fs::path path(const Environment& environment) { return UserFolders::supportDir(environment) / "capture-fault.json"; }

std::optional<CaptureFault> read(const fs::path& from) {
  try {
    return decode(readFile(from));
  } catch (const std::system_error&) {
    return std::nullopt;
  }
}

void write(const CaptureFault& fault, const fs::path& to) {
  const JSONObject object{{"kind", rawValue(fault.kind)},
                          {"since", ISO8601::utcMillis(fault.sinceMs)},
                          {"updatedAt", ISO8601::utcMillis(fault.updatedAtMs)},
                          {"consecutiveFailures", fault.consecutiveFailures},
                          {"detail", fault.detail}};
  const auto text = JSONValue(object).dumpPretty() + "\n";
  fs::create_directories(to.parent_path());
  writeFileAtomically(to, text);
}

void clear(const fs::path& at) { fs::remove(at); }

void recordDirectly(const Record& record) {
  const auto before = read(record.file);
  const bool goesOn = before && before->kind == record.kind && !isStale(*before, record.nowMs);
  try {
    write({.kind = record.kind,
           .sinceMs = goesOn ? std::min(before->sinceMs, record.nowMs) : record.nowMs,
           .updatedAtMs = record.nowMs,
           .consecutiveFailures = record.consecutiveFailures,
           .detail = record.detail},
          record.file);
  } catch (const std::exception& error) {
    if (record.log) record.log(fmt::format("the capture fault \"{}\" could not be written: {}", rawValue(record.kind), error.what()));
  }
}

bool isStale(const CaptureFault& fault, std::int64_t nowMs) {
  return static_cast<double>(nowMs) - static_cast<double>(fault.updatedAtMs) > staleAfter * 1000;
}

}  // namespace halvo::CaptureFaultStore
