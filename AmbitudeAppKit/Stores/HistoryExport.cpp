#include "AmbitudeAppKit/Stores/HistoryExport.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <functional>
#include <optional>
#include <system_error>

#include <fmt/format.h>

#include "AmbitudeCore/Gate/GateDecisionLog.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/EventLog/EventLogReader.h"
#include "CaptureShared/EventLog/LineSplitter.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Signals/SignalsReader.h"

namespace halvo::HistoryExport {

namespace {

namespace fs = std::filesystem;
using TimeOf = std::function<std::optional<std::int64_t>(std::string_view)>;

FileHandle createNew(const fs::path& file) {
  const int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (fd < 0) throw std::system_error(errno, std::generic_category(), file.string());
  return FileHandle(fd);
}

/// The rows of a log that lie in the stretch, as they are; nothing for a log that is not there.
std::int64_t copyRows(const fs::path& log, const fs::path& to, const Choice& choice, const TimeOf& timeOf, const std::stop_token& stop) {
  const auto out = createNew(to);
  std::int64_t rows = 0;
  try {
    const auto in = FileHandle::openForRead(log);
    LineSplitter lines;
    std::string kept;
    constexpr std::size_t pieceBytes = 256 * 1024;
    for (std::uint64_t at = 0;; ) {
      throwIfStopped(stop);
      const auto piece = in.readAt(at, pieceBytes);
      if (piece.empty()) break;
      at += piece.size();
      lines.feed(piece, [&](std::string_view line) {
        const auto ms = timeOf(line);
        if (!ms || *ms < choice.fromMs || *ms > choice.toMs) return;
        ++rows;
        kept.append(line).push_back('\n');
      });
      writeAll(out.fd(), kept, to);
      kept.clear();
    }
  } catch (const std::system_error& error) {
    if (error.code() != std::errc::no_such_file_or_directory) throw;
  }
  return rows;
}

/// A field as RFC 4180 has it. One that a spreadsheet would take for a formula gets an apostrophe in front.
std::string csv(const std::optional<std::string>& field) {
  auto text = field.value_or("");
  if (!text.empty() && std::string_view("=+-@").find(text[0]) != std::string_view::npos) text.insert(0, "'");
  return '"' + Text::replaceAll(std::move(text), "\"", "\"\"") + '"';
}

std::int64_t copySamples(const fs::path& root, const fs::path& to, const Choice& choice, const std::stop_token& stop) {
  const auto out = createNew(to);
  writeAll(out.fd(), "ts_ms,app,browser_title,idle_sec\n", to);
  std::error_code none;
  if (!fs::exists(DataPaths::signalsDB(root), none)) return 0;
  const SignalsReader reader(DataPaths::signalsDB(root));
  constexpr int atATime = 20'000;
  std::int64_t rows = 0;
  for (auto fromMs = choice.fromMs; fromMs <= choice.toMs;) {
    throwIfStopped(stop);
    const auto some = reader.ticks(fromMs, choice.toMs, atATime);
    std::string text;
    for (const auto& row : some)
      text += fmt::format("{},{},{},{}\n", row.tsMs, csv(row.frontmostApp), csv(row.browserTitle), row.idleAnySec ? fmt::format("{:g}", *row.idleAnySec) : "");
    writeAll(out.fd(), text, to);
    rows += static_cast<std::int64_t>(some.size());
    if (static_cast<int>(some.size()) < atATime) break;
    fromMs = some.back().tsMs + 1;
  }
  return rows;
}

}  // namespace

std::vector<Written> write(const Choice& choice, const fs::path& root, const fs::path& folder, const std::stop_token& stop) {
  if (::mkdir(folder.c_str(), 0700) != 0) throw std::system_error(errno, std::generic_category(), folder.string());
  try {
    std::vector<Written> written;
    const auto rows = [&](const char* name, const fs::path& log, const TimeOf& timeOf) {
      written.push_back({name, copyRows(log, folder / name, choice, timeOf, stop)});
    };
    if (choice.withEvents)
      rows("events.jsonl", DataPaths::events(root), [](std::string_view line) -> std::optional<std::int64_t> {
        const auto event = EventLogReader::decode(line);
        return event ? std::optional(event->tsMs) : std::nullopt;
      });
    if (choice.withVerdicts) {
      rows("checker-log.jsonl", DataPaths::checkerLog(root), [](std::string_view line) -> std::optional<std::int64_t> {
        const auto tick = ClassifierTick::decode(line);
        return tick ? tick->atMs() : std::nullopt;
      });
      rows("gate-decisions.jsonl", GateDecisionLog::defaultURL(root), [](std::string_view line) -> std::optional<std::int64_t> {
        const auto record = GateDecisionRecord::decode(line);
        return record ? std::optional(record->atMs) : std::nullopt;
      });
    }
    if (choice.withSamples) written.push_back({"samples.csv", copySamples(root, folder / "samples.csv", choice, stop)});
    return written;
  } catch (...) {
    // It is ours: the folder was made just now.
    std::error_code ignored;
    fs::remove_all(folder, ignored);
    throw;
  }
}

}  // namespace halvo::HistoryExport
