#include "CaptureShared/EventLog/RetainedDriverLog.h"

#include <optional>
#include <system_error>

#include <fmt/format.h>

namespace halvo {

namespace {

/// By parsed time, then by text: in the autumn hour that comes twice the texts alone would run backward.
bool tickIsBefore(const ClassifierTick& a, const ClassifierTick& b) {
  const auto left = a.atMs(), right = b.atMs();
  if (left != right) return left < right;
  return a.at < b.at;
}

/// Reads one feed; the error's text when it can't be read.
template <class Row>
std::optional<std::string> refreshFeed(RetainedDriverLog::Feed<Row>& feed, const LogSink& log) {
  const auto decodedBefore = feed.reader.decodeCallCount() - *feed.leftOut;
  const auto recordsBefore = feed.fold.committed().size();
  IncrementalReadResult<Row> result;
  try {
    result = feed.invalidatedByFailure ? feed.reader.readFull() : feed.reader.read();
  } catch (const std::system_error& error) {
    if (error.code() == std::errc::no_such_file_or_directory) {
      if (recordsBefore > 0) log(fmt::format("{}: the file is gone -- dropped {} retained records", feed.name, recordsBefore));
      feed.fold.clear();
      feed.reader.invalidate();
      feed.invalidatedByFailure = false;
      return std::nullopt;
    }
    feed.invalidatedByFailure = true;
    return error.what();
  }
  const bool reset = std::holds_alternative<Reset<Row>>(result);
  const auto rows = match(
      result, [](const Reset<Row>& all) { return all.rows.size(); }, [](const Appended<Row>& more) { return more.rows.size(); });
  feed.fold.apply(std::move(result));
  const auto skipped = feed.reader.decodeCallCount() - *feed.leftOut - decodedBefore - static_cast<std::int64_t>(rows);
  if (skipped > 0) {
    feed.skippedLines += skipped;
    log(fmt::format("{}: skipped {} complete line(s) that did not decode (same as the full reader; counted here so it is not silent)", feed.name,
                    skipped));
  }
  if (reset && feed.hasRead)
    log(fmt::format("{}: re-read in full ({}): {} records before, {} now", feed.name,
                    feed.invalidatedByFailure ? "after a failed read" : "the file was rotated, truncated or replaced", recordsBefore,
                    feed.fold.committed().size()));
  feed.hasRead = true;
  feed.invalidatedByFailure = false;
  return std::nullopt;
}

/// A feed whose decoder leaves out what `keep` has no use for, before it costs memory.
template <class Row>
RetainedDriverLog::Feed<Row> makeFeed(const char* name, IncrementalJSONLReader<Row> (*open)(const std::filesystem::path&, RowFilter<Row>),
                                      const std::filesystem::path& file, const std::function<bool(Row&)>& keep,
                                      typename DeltaFold<Row>::Compare isBefore) {
  const auto leftOut = std::make_shared<std::int64_t>(0);
  RowFilter<Row> filter;
  if (keep)
    filter = [keep, leftOut](Row& row) {
      const bool isKept = keep(row);
      *leftOut += !isKept;
      return isKept;
    };
  return {.name = name, .reader = open(file, std::move(filter)), .fold = DeltaFold<Row>(std::move(isBefore)), .leftOut = leftOut};
}

}  // namespace

RetainedDriverLog::RetainedDriverLog(const std::filesystem::path& eventsURL, const std::filesystem::path& ticksURL, LogSink log, const Keep& keep)
    : events_(makeFeed<EventLogEvent>("events", JSONLReaders::events, eventsURL, keep.event,
                                      [](const EventLogEvent& a, const EventLogEvent& b) { return a.tsMs < b.tsMs; })),
      ticks_(makeFeed<ClassifierTick>("ticks", JSONLReaders::classifierTicks, ticksURL, keep.tick, tickIsBefore)),
      log_(log ? std::move(log) : [](const std::string&) {}) {}

RetainedDriverLog::Outcome RetainedDriverLog::refresh() {
  if (auto error = refreshFeed(events_, log_)) return EventsUnreadable{std::move(*error)};
  if (auto error = refreshFeed(ticks_, log_)) return TicksUnreadable{std::move(*error)};
  return Ready{events_.sorted(), ticks_.sorted()};
}

void RetainedDriverLog::invalidate() {
  events_.reader.invalidate();
  ticks_.reader.invalidate();
}

}  // namespace halvo
