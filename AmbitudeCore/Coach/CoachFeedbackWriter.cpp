#include "AmbitudeCore/Coach/CoachFeedbackWriter.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <system_error>

#include "AmbitudeCore/Folds/JSONLRewrite.h"
#include "AmbitudeCore/Folds/RewriteError.h"
#include "AmbitudeCore/Folds/TimedTicks.h"
#include "CaptureShared/EventLog/EventLogReader.h"
#include "CaptureShared/EventLog/JSONLAppend.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::CoachFeedbackWriter {

namespace {

namespace fs = std::filesystem;

constexpr const char* goneText = "that feedback entry isn't in the file any more — it may have changed elsewhere";
constexpr const char* notEncodedText = "could not encode feedback as JSON";

fs::path scratchBeside(const fs::path& file) { return file.parent_path() / (".coach-feedback-" + std::to_string(::getpid())); }

/// Holds the file itself against other changes; one that was replaced while this waited is let go.
FileHandle hold(const fs::path& url, int flags) {
  for (;;) {
    FileHandle file(::open(url.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!file) throw std::system_error(errno, std::generic_category(), url.string());
    while (::flock(file.fd(), LOCK_EX) != 0)
      if (errno != EINTR) throw std::system_error(errno, std::generic_category(), url.string());
    try {
      const auto named = FileIdentity::of(url), held = FileIdentity::of(file);
      if (named.inode == held.inode && named.device == held.device) return file;
    } catch (const std::system_error& error) {
      if (error.code() != std::errc::no_such_file_or_directory) throw;
    }
  }
}

void put(StoredFeedback& row, const Feedback& feedback) {
  row.mode.reset(), row.text.reset();
  const auto criterion = [&](Kind kind, const auto& given) {
    row.kind = kind, row.mode = given.mode, row.text = given.text, row.note = given.note;
  };
  match(
      feedback, [&](const Keep& given) { row.kind = Kind::keep, row.note = given.note; },
      [&](const Fault& given) { row.kind = Kind::fault, row.note = given.note; },
      [&](const Criterion& given) { criterion(Kind::criterion, given); },
      [&](const Confirmation& given) { criterion(Kind::confirmation, given); });
}

/// Passes the row of an id through `change`; throws when it is not there.
void changeRow(const std::string& id, const fs::path& url,
               const std::function<std::optional<std::string>(StoredFeedback row, std::string_view line)>& change) {
  bool isThere = false;
  try {
    const auto held = hold(url, O_RDONLY);
    JSONLRewrite::apply(
        url,
        [&](std::string_view line) -> std::optional<std::string> {
          auto row = StoredFeedback::decode(line);
          if (!row || row->id() != id) return std::string(line);
          isThere = true;
          return change(std::move(*row), line);
        },
        scratchBeside(url));
  } catch (const JSONEncodingError&) {
    throw RewriteError::encodingFailed(notEncodedText);
  } catch (const std::system_error& error) {
    if (error.code() != std::errc::no_such_file_or_directory) throw RewriteError::renameFailed(error.code().value());
  }
  if (!isThere) throw RewriteError::notFound(goneText);
}

JSONValue encoded(const EventLogEvent& event) {
  return JSONObject{
      {"ts_ms", event.tsMs}, {"kind", event.kind}, {"type", event.type}, {"detail", event.detail}, {"source", event.source}};
}

}  // namespace

std::string StoredFeedback::encode() const {
  JSONObject row{{"atMs", atMs}, {"createdAt", createdAt}, {"kind", rawValue(kind)}};
  if (mode) row.set("mode", rawValue(*mode));
  if (text) row.set("text", *text);
  if (note) row.set("note", *note);
  return JSONValue(std::move(row)).dump();
}

std::optional<StoredFeedback> StoredFeedback::decode(std::string_view line) {
  const auto value = JSONValue::parse(line);
  const auto* object = value ? value->objectValue() : nullptr;
  if (!object) return std::nullopt;
  const auto at = object->integer("atMs");
  auto created = object->string("createdAt");
  const auto kind = fromRawValue<Kind>(object->string("kind").value_or(""));
  if (!at || !created || !kind) return std::nullopt;
  return StoredFeedback{.atMs = *at,
                        .createdAt = std::move(*created),
                        .kind = *kind,
                        .mode = fromRawValue<Mode>(object->string("mode").value_or("")),
                        .text = object->string("text"),
                        .note = object->string("note")};
}

fs::path defaultURL(const fs::path& dataRoot) { return dataRoot / "coach-feedback.jsonl"; }

std::vector<StoredFeedback> readAll(const fs::path& url) {
  std::vector<StoredFeedback> rows;
  std::string bytes;
  try {
    bytes = readFile(url);
  } catch (const std::system_error& error) {
    if (error.code() == std::errc::no_such_file_or_directory) return rows;
    throw;
  }
  for (const auto line : Text::split(bytes, '\n'))
    if (auto row = StoredFeedback::decode(line)) rows.push_back(std::move(*row));
  return rows;
}

std::optional<std::string> writeReportingFailure(const Grade& grade, const fs::path& url) {
  const auto couldNotSave = [](int code) { return "could not save: errno " + std::to_string(code); };
  try {
    const auto held = hold(url, O_RDWR | O_CREAT | O_APPEND);
    const auto rows = readAll(url);
    StoredFeedback row{.atMs = grade.atMs};
    put(row, grade.feedback);
    auto createdMs = grade.asOfMs;
    do row.createdAt = ISO8601::utcMillis(createdMs++);
    while (std::ranges::any_of(rows, [&](const StoredFeedback& other) { return other.id() == row.id(); }));
    JSONLAppend::append(std::string_view(row.encode()), url);
    return std::nullopt;
  } catch (const JSONEncodingError&) {
    return notEncodedText;
  } catch (const JSONLAppendError& error) {
    return error.kind() == JSONLAppendError::Kind::encodingFailed ? notEncodedText : couldNotSave(error.code() ? error.code() : EIO);
  } catch (const std::system_error& error) {
    return couldNotSave(error.code().value());
  }
}

bool write(const Grade& grade, const fs::path& url) { return !writeReportingFailure(grade, url); }

void update(const std::string& id, const Feedback& with, const fs::path& url) {
  changeRow(id, url, [&](StoredFeedback row, std::string_view) -> std::optional<std::string> {
    put(row, with);
    return row.encode();
  });
}

void erase(const std::string& id, const fs::path& url) {
  changeRow(id, url, [](StoredFeedback, std::string_view) { return std::nullopt; });
}

fs::path fixturesDirectory(const fs::path& dataRoot) { return dataRoot / "coach-fixtures"; }

fs::path captureFixture(const Surroundings& around, const fs::path& directory) {
  const auto fromMs = around.atMs - fixtureReachMs;
  JSONValue::Array events, ticks;
  for (const auto& event : around.events)
    if (event.tsMs >= fromMs && event.tsMs <= around.atMs) events.push_back(encoded(event));
  for (const auto& tick : TimedTicks::within(around.ticks, fromMs, around.atMs))
    ticks.push_back(JSONValue::parse(tick.tick->encode()).value_or(JSONObject{}));
  const auto file = directory / ("turn-" + std::to_string(around.atMs) + ".json");
  std::string bytes;
  try {
    bytes = JSONValue(JSONObject{{"atMs", around.atMs},
                                 {"events", std::move(events)},
                                 {"ticks", std::move(ticks)},
                                 {"capturedAt", ISO8601::utcMillis(around.asOfMs)}})
                .dump() +
            "\n";
  } catch (const JSONEncodingError&) {
    throw RewriteError::encodingFailed(notEncodedText);
  }
  makePrivateFolder(directory);
  JSONLRewrite::replace(file, bytes, scratchBeside(file));
  return file;
}

std::optional<Fixture> readFixture(const fs::path& file) {
  const auto value = JSONValue::parse(readFile(file));
  const auto* object = value ? value->objectValue() : nullptr;
  const auto at = object ? object->integer("atMs") : std::nullopt;
  const auto* events = object ? object->find("events") : nullptr;
  const auto* ticks = object ? object->find("ticks") : nullptr;
  if (!at || !events || !events->arrayValue() || !ticks || !ticks->arrayValue()) return std::nullopt;
  Fixture fixture{.atMs = *at, .capturedAt = object->string("capturedAt").value_or("")};
  for (const auto& event : *events->arrayValue())
    if (auto row = EventLogReader::decode(event.dump())) fixture.events.push_back(std::move(*row));
  for (const auto& tick : *ticks->arrayValue())
    if (auto row = ClassifierTick::decode(tick.dump())) fixture.ticks.push_back(std::move(*row));
  return fixture;
}

}  // namespace halvo::CoachFeedbackWriter
