#include "CaptureShared/Intention/EventLog.h"

#include <algorithm>
#include <mutex>
#include <system_error>

#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/EventLog/LineSplitter.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Intention/IntentionWriter.h"
#include "CaptureShared/Records/TaskMinutes.h"

namespace halvo::EventLog {

namespace {

constexpr std::int64_t backwardChunkBytes = 65'536;

struct Cache {
  std::filesystem::path file;
  FileIdentity identity;
  std::int64_t completeUpTo = 0;
  std::optional<std::string> body;
};

struct SharedCache {
  std::mutex mutex;
  std::optional<Cache> cache;
};
SharedCache& shared() {
  static SharedCache value;
  return value;
}

/// What a row says is declared: the body, or absent when it says nothing readable.
using Body = std::optional<std::string>;

/// Absent when the line is no declaration row.
std::optional<Body> bodyOf(std::string_view line, const Calendar& calendar) {
  // Nearly no line is one of the two: look before parsing.
  if (line.find("task_declared") == std::string_view::npos && line.find("task_cleared") == std::string_view::npos) return std::nullopt;
  const auto row = JSONValue::parse(line);
  const auto* object = row ? row->objectValue() : nullptr;
  if (!object) return std::nullopt;
  const auto type = object->string("type");
  const auto tsMs = object->integer("ts_ms");
  const auto* detail = object->find("detail");
  if (!type || !tsMs || !detail || (type != IntentionWriter::declaredType && type != IntentionWriter::clearedType)) return std::nullopt;
  const auto* fields = detail->objectValue();
  return taskFileBody(*type, fields ? std::optional(*fields) : std::nullopt, *tsMs, calendar);
}

struct Scan {
  Body body;
  std::int64_t completeUpTo = 0;
};

/// Throws `std::system_error` for a range that can't be read.
Scan scanForward(const FileHandle& file, std::int64_t from, std::int64_t to, Body body, const Calendar& calendar) {
  LineSplitter lines;
  auto at = from;
  while (at < to) {
    const auto bytes = file.readAt(static_cast<std::uint64_t>(at), static_cast<std::size_t>(std::min<std::int64_t>(to - at, 1 << 20)));
    if (bytes.empty()) break;
    at += static_cast<std::int64_t>(bytes.size());
    lines.feed(bytes, [&](std::string_view line) {
      if (auto found = bodyOf(line, calendar)) body = *std::move(found);
    });
  }
  return {std::move(body), at - static_cast<std::int64_t>(lines.pendingBytes())};
}

/// Absent when what came can't be told by itself: no newline stands in front of it (the file was made anew under the inode it had), or it
/// can't be read.
std::optional<Scan> scanAppended(const FileHandle& handle, const Cache& cache, std::int64_t size, const Calendar& calendar) {
  try {
    if (handle.readAt(static_cast<std::uint64_t>(cache.completeUpTo - 1), 1) != "\n") return std::nullopt;
    return scanForward(handle, cache.completeUpTo, size, cache.body, calendar);
  } catch (const std::system_error&) {
    return std::nullopt;
  }
}

Scan scanBackward(const FileHandle& file, std::int64_t size, const Calendar& calendar) {
  Scan scan;
  std::string carried;  // the front of the chunk before, which is no whole line yet
  bool tornTail = true;
  for (auto at = size; at > 0;) {
    const auto step = std::min(backwardChunkBytes, at);
    at -= step;
    auto chunk = file.readAt(static_cast<std::uint64_t>(at), static_cast<std::size_t>(step)) + carried;
    if (tornTail) {
      const auto lastNewline = chunk.rfind('\n');
      if (lastNewline == std::string::npos) {
        carried = std::move(chunk);
        continue;
      }
      tornTail = false;
      scan.completeUpTo = at + static_cast<std::int64_t>(lastNewline) + 1;
      chunk.resize(lastNewline);
    }
    std::string_view rest(chunk);
    for (auto newline = rest.rfind('\n'); newline != std::string_view::npos; newline = rest.rfind('\n')) {
      if (auto found = bodyOf(rest.substr(newline + 1), calendar)) return {*std::move(found), scan.completeUpTo};
      rest = rest.substr(0, newline);
    }
    carried = rest;
  }
  if (!tornTail) scan.body = bodyOf(carried, calendar).value_or(std::nullopt);
  return scan;
}

}  // namespace

std::filesystem::path path() { return DataPaths::events(); }

std::optional<std::string> taskFileBody(std::string_view type, const std::optional<JSONObject>& detail, std::int64_t tsMs,
                                        const Calendar& calendar) {
  if (type == IntentionWriter::clearedType) return "";
  if (type != IntentionWriter::declaredType || !detail) return std::nullopt;
  auto text = detail->string("notes");
  if (!text) text = detail->string("task");
  if (!text) return std::nullopt;
  std::optional<std::string> estimate;
  if (const auto minutes = cleanTaskMinutes(detail->find("horizon_minutes")); minutes && detail->number("horizon_minutes"))
    estimate = calendar.clock12(tsMs + std::int64_t{*minutes} * 60'000);
  else
    estimate = detail->string("until");
  // One line each: a task that holds a newline must not be able to write an "Estimate:" line of its own.
  auto body = "Task: " + Text::newlinesToBlanks(*text) + "\nDeclared: " + calendar.declared(tsMs) + " ET\n";
  if (estimate) body += "Estimate: until " + Text::newlinesToBlanks(*estimate) + "\n";
  if (const auto why = detail->string("why")) body += "Why: " + Text::newlinesToBlanks(*why) + "\n";
  return body;
}

std::optional<std::string> read(const std::filesystem::path& file) {
  auto& memory = shared();
  const std::lock_guard hold(memory.mutex);
  auto& cache = memory.cache;
  try {
    const auto now = FileIdentity::of(file);
    const bool sameFile = cache && cache->file == file && cache->identity.inode == now.inode && cache->identity.device == now.device;
    if (sameFile && cache->identity == now) return cache->body;
    const auto calendar = Calendar::local();
    const auto handle = FileHandle::openForRead(file);
    std::optional<Scan> scan;
    if (sameFile && now.size >= cache->identity.size && cache->completeUpTo >= 1) scan = scanAppended(handle, *cache, now.size, calendar);
    if (!scan) scan = scanBackward(handle, now.size, calendar);
    cache = Cache{file, now, scan->completeUpTo, scan->body};
    return scan->body;
  } catch (const std::system_error&) {
    cache.reset();
    return std::nullopt;
  }
}

}  // namespace halvo::EventLog
