#include "AmbitudeCore/Folds/CoachCorrectionsLog.h"

#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <system_error>
#include <thread>

#include "AmbitudeCore/Folds/EventTypes.h"
#include "AmbitudeCore/Folds/JSONLRewrite.h"
#include "AmbitudeCore/Folds/RewriteError.h"
#include "CaptureShared/EventLog/JSONLAppend.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo {

EventLogEvent CoachCorrectionRecordedEvent::make(const Correction& correction, const Calendar& calendar) {
  JSONObject detail{{"text", correction.text}, {"lasts", rawValue(correction.lasts)}};
  if (correction.scope) detail.set("scope", rawValue(*correction.scope));
  if (const auto end = CoachCorrection::expiry(correction.lasts, correction.asOfMs, calendar)) detail.set("expires_at_ms", *end);
  return {.tsMs = correction.asOfMs, .type = std::string(EventType::correctionRecorded), .detail = std::move(detail)};
}

namespace CoachCorrectionsLog {
namespace {

using Kind = LockError::Kind;

/// Held until it goes.
FileHandle lock(const std::filesystem::path& url) {
  FileHandle file(::open((url.string() + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644));
  if (!file) throw LockError(Kind::openFailed, errno);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(lockWaitSec);
  while (::flock(file.fd(), LOCK_EX | LOCK_NB) != 0) {
    const int code = errno;
    if (code != EINTR && (code != EWOULDBLOCK || std::chrono::steady_clock::now() > deadline)) throw LockError(Kind::lockFailed, code);
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return file;
}

void replaceRows(const std::vector<CoachCorrection>& corrections, const std::filesystem::path& url) {
  std::string bytes;
  try {
    for (const auto& correction : corrections) bytes += correction.encode() + "\n";
  } catch (const JSONEncodingError& error) {
    throw RewriteError::encodingFailed(error.what());
  }
  JSONLRewrite::replace(url, bytes);
}

/// Gives each row a time of its own; the list is sorted.
void separate(std::vector<CoachCorrection>& corrections) {
  for (std::size_t i = 1; i < corrections.size(); ++i) corrections[i].atMs = std::max(corrections[i].atMs, corrections[i - 1].atMs + 1);
}

}  // namespace

LockError::LockError(Kind kind, int code)
    : std::runtime_error(std::string(kind == Kind::openFailed ? "could not open" : "could not take") + " the corrections' lock: errno " +
                         std::to_string(code)),
      kind_(kind),
      code_(code) {}

std::filesystem::path defaultURL(const std::filesystem::path& dataRoot) { return dataRoot / "coach-corrections.jsonl"; }

std::vector<CoachCorrection> readAll(const std::filesystem::path& url) {
  std::vector<CoachCorrection> corrections;
  const auto bytes = readFile(url);
  for (const auto line : Text::split(bytes, '\n'))
    if (auto correction = CoachCorrection::decode(line)) corrections.push_back(std::move(*correction));
  std::ranges::stable_sort(corrections, {}, &CoachCorrection::atMs);
  return corrections;
}

std::vector<CoachCorrection> pending(const std::filesystem::path& url) {
  auto corrections = readAll(url);
  std::erase_if(corrections, [](const CoachCorrection& correction) { return !correction.isPending(); });
  return corrections;
}

std::vector<CoachCorrection> fromEvents(std::span<const EventLogEvent> events) {
  std::vector<CoachCorrection> corrections;
  for (const auto& event : events) {
    if (event.type != EventType::correctionRecorded) continue;
    const auto* detail = event.detail.objectValue();
    const auto* text = event.text("text");
    if (!detail || !text || Text::isBlank(*text)) continue;
    CoachCorrection correction{.atMs = event.tsMs, .text = std::string(Text::trim(*text))};
    if (const auto* scope = event.text("scope")) correction.scope = fromRawValue<CoachCorrection::Scope>(*scope);
    if (const auto* lasts = event.text("lasts")) correction.lasts = fromRawValue<CoachCorrection::Lasts>(*lasts);
    correction.expiresAtMs = detail->integer("expires_at_ms");
    const bool limited = correction.lasts && *correction.lasts != CoachCorrection::Lasts::untilChanged;
    if (limited && !correction.expiresAtMs)
      correction.expiresAtMs = event.tsMs + static_cast<std::int64_t>(CoachCorrection::nextFewHoursDuration * 1000);
    corrections.push_back(std::move(correction));
  }
  std::ranges::stable_sort(corrections, {}, &CoachCorrection::atMs);
  separate(corrections);
  return corrections;
}

std::vector<CoachCorrection> inForce(std::vector<CoachCorrection> corrections, std::int64_t asOfMs) {
  std::erase_if(corrections, [&](const CoachCorrection& c) { return c.atMs > asOfMs || !c.isInForce(asOfMs); });
  return corrections;
}

std::vector<CoachCorrection> inForce(const std::filesystem::path& url, std::int64_t asOfMs) { return inForce(readAll(url), asOfMs); }

std::int64_t write(CoachCorrection correction, const std::filesystem::path& url) {
  const auto held = lock(url);
  std::error_code none;
  if (std::filesystem::exists(url, none))
    for (const auto& other : readAll(url)) correction.atMs += other.atMs == correction.atMs;
  JSONLAppend::append(std::string_view(correction.encode()), url);
  return correction.atMs;
}

void rewrite(const std::vector<CoachCorrection>& corrections, const std::filesystem::path& url) {
  const auto held = lock(url);
  replaceRows(corrections, url);
}

bool restore(const std::vector<CoachCorrection>& corrections, const std::filesystem::path& url) {
  const auto held = lock(url);
  std::error_code none;
  if (std::filesystem::symlink_status(url, none).type() != std::filesystem::file_type::not_found) return false;
  replaceRows(corrections, url);
  return true;
}

std::size_t markFolded(std::span<const std::int64_t> atMsValues, std::int64_t foldedAtMs, const std::filesystem::path& url) {
  const auto held = lock(url);
  return JSONLRewrite::apply(url, [&](std::string_view line) -> std::optional<std::string> {
    const auto correction = CoachCorrection::decode(line);
    if (!correction || std::ranges::find(atMsValues, correction->atMs) == atMsValues.end()) return std::string(line);
    auto row = JSONValue::parse(line);
    row->mutableObject()->set("folded_at_ms", foldedAtMs);
    return row->dump();
  });
}

bool erase(std::int64_t atMs, const std::filesystem::path& url) {
  const auto held = lock(url);
  bool isGone = false;
  JSONLRewrite::apply(url, [&](std::string_view line) -> std::optional<std::string> {
    const auto correction = CoachCorrection::decode(line);
    if (isGone || !correction || correction->atMs != atMs) return std::string(line);
    isGone = true;
    return std::nullopt;
  });
  return isGone;
}

}  // namespace CoachCorrectionsLog
}  // namespace halvo
