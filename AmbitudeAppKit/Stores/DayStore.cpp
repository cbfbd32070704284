#include "AmbitudeAppKit/Stores/DayStore.h"

#include <cstdlib>
#include <limits>
#include <system_error>
#include <type_traits>
#include <utility>

#include "AmbitudeCore/Folds/CoachCorrectionsLog.h"
#include "AmbitudeCore/Folds/EventTypes.h"
#include "AmbitudeCore/Folds/UserQuietWindow.h"
#include "AmbitudeCore/Gate/GateDecisionLog.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/EventLog/EventLogReader.h"
#include "CaptureShared/EventLog/LogTail.h"
#include "CaptureShared/Signals/SignalsReader.h"

namespace halvo {

namespace {

std::optional<std::int64_t> timeOf(const EventLogEvent& event) { return event.tsMs; }
std::optional<std::int64_t> timeOf(const ClassifierTick& tick) { return tick.atMs(); }
std::optional<std::int64_t> timeOf(const GateDecisionRecord& record) { return record.atMs; }

bool isQuiet(const EventLogEvent& event) {
  return event.type == EventType::userQuietRequested || event.type == EventType::userQuietCancelled;
}
/// The request that counts, and what cancels it.
void keepLatestQuiet(std::vector<EventLogEvent>& rows) {
  const auto latest = UserQuietWindow::latest(rows, std::numeric_limits<std::int64_t>::max());
  std::erase_if(rows, [&](const EventLogEvent& row) {
    if (!latest) return true;
    const auto* detail = row.detail.objectValue();
    return row.type == EventType::userQuietRequested ? row.tsMs != latest->requestedMs
                                                     : !detail || detail->integer("window_requested_ts_ms") != latest->requestedMs;
  });
}

template <class Row>
bool isEarlier(const Row& a, const Row& b) {
  constexpr auto never = std::numeric_limits<std::int64_t>::min();
  return timeOf(a).value_or(never) < timeOf(b).value_or(never);
}

template <class Row>
std::optional<std::int64_t> timeOfLine(std::string_view line, std::optional<Row> (*decode)(std::string_view)) {
  const auto row = decode(line);
  return row ? timeOf(*row) : std::nullopt;
}

template <class Row>
std::optional<Row> decodeRow(std::string_view line);
template <>
std::optional<EventLogEvent> decodeRow(std::string_view line) { return EventLogReader::decode(line); }
template <>
std::optional<ClassifierTick> decodeRow(std::string_view line) { return ClassifierTick::decode(line); }
template <>
std::optional<GateDecisionRecord> decodeRow(std::string_view line) { return GateDecisionRecord::decode(line); }

ActivityTimeline::Sample sampleOf(const SignalsReader::TickRow& row) {
  return {.tsMs = row.tsMs, .app = row.frontmostApp, .idleSec = row.idleAnySec, .browserTitle = row.browserTitle};
}

/// Whether a person would see a difference.
bool isAnother(const ActivityTimeline::Sample& a, const ActivityTimeline::Sample& b) {
  return a.app != b.app || ActivityTimeline::presenceOf(a) != ActivityTimeline::presenceOf(b);
}

}  // namespace

DayStore::DayStore(std::filesystem::path root, std::int64_t fromMs)
    : root_(std::move(root)),
      fromMs_(fromMs),
      events_{JSONLReaders::events(DataPaths::events(root_)), DeltaFold<EventLogEvent>(isEarlier<EventLogEvent>)},
      ticks_{JSONLReaders::classifierTicks(DataPaths::checkerLog(root_)), DeltaFold<ClassifierTick>(isEarlier<ClassifierTick>)},
      decisions_{IncrementalJSONLReader<GateDecisionRecord>(GateDecisionLog::defaultURL(root_), GateDecisionRecord::decode, 600),
                 DeltaFold<GateDecisionRecord>(isEarlier<GateDecisionRecord>)},
      sampledUpToMs_(fromMs) {}

template <class Row>
bool DayStore::follow(Feed<Row>& feed) {
  try {
    const bool isFirst = !feed.hasBegun;
    if (isFirst) {
      feed.reader.startAt(LogTail::offsetOf(fromMs_, feed.reader.url(),
                                            [](std::string_view line) { return timeOfLine<Row>(line, decodeRow<Row>); }));
      feed.hasBegun = true;
    }
    auto result = feed.reader.read();
    const bool isAnew = std::holds_alternative<Reset<Row>>(result);
    const bool isNews = isAnew || !std::get<Appended<Row>>(result).rows.empty();
    if constexpr (std::is_same_v<Row, EventLogEvent>) {
      isAnew_ = isAnew || isFirst;
      arrivedFrom_ = isAnew ? 0 : feed.rows.committed().size();
    }
    if (isNews)
      feed.rows.apply(std::move(result), [this](Row&& row) {
        const auto ms = timeOf(row);
        return ms && *ms >= fromMs_ ? std::optional(std::move(row)) : std::nullopt;
      });
    return isNews;
  } catch (const std::system_error& error) {
    if (error.code() != std::errc::no_such_file_or_directory) trouble_ = error.what();
    return false;
  }
}

bool DayStore::sample(std::int64_t nowMs) {
  constexpr int atMost = 200'000;  // three days and more
  if (std::abs(nowMs - sampleLookedMs_) < sampleLookMs) return false;
  sampleLookedMs_ = nowMs;
  std::error_code none;
  if (!std::filesystem::exists(DataPaths::signalsDB(root_), none)) return false;
  try {
    const auto rows = SignalsReader(DataPaths::signalsDB(root_)).ticks(sampledUpToMs_ + 1, nowMs, atMost);
    if (rows.empty()) return false;
    sampledUpToMs_ = rows.back().tsMs;
    for (const auto& row : rows) {
      auto next = sampleOf(row);
      if (samples_.empty() || next.tsMs - samples_.back().tsMs >= sampleEveryMs || isAnother(samples_.back(), next))
        samples_.push_back(std::move(next));
    }
    return true;
  } catch (const SignalsReaderError& error) {
    trouble_ = error.what();
    return false;
  }
}

bool DayStore::followCorrections() {
  const auto url = CoachCorrectionsLog::defaultURL(root_);
  try {
    const auto now = FileIdentity::of(url);
    if (correctionsRead_ == now) return false;
    correctionsRead_ = now;
    corrections_ = CoachCorrectionsLog::readAll(url);
    return true;
  } catch (const std::system_error& error) {
    const bool isMissing = error.code() == std::errc::no_such_file_or_directory;
    if (!isMissing) trouble_ = error.what();
    // Of what can't be read nothing is offered to be deleted.
    const auto before = std::exchange(corrections_, isMissing ? std::nullopt : std::optional(std::vector<CoachCorrection>()));
    correctionsRead_.reset();
    return before != corrections_;
  }
}

bool DayStore::refresh(std::int64_t nowMs) {
  trouble_.reset();
  arrivedFrom_ = events_.rows.committed().size();
  isAnew_ = false;
  const bool hasEvents = follow(events_), hasTicks = follow(ticks_), hasDecisions = follow(decisions_), hasSamples = sample(nowMs);
  const bool hasCorrections = followCorrections();
  if (hasOldQuiet_ && isAnew_) findOldQuiet();  // it went with the rest
  return hasEvents || hasTicks || hasDecisions || hasSamples || hasCorrections;
}

DayStore::Rows DayStore::rows() const {
  return {events_.rows.sorted(), ticks_.rows.sorted(), decisions_.rows.sorted(), samples_, corrections_};
}

void DayStore::findOldQuiet() {
  hasOldQuiet_ = true;
  auto reader = JSONLReaders::events(events_.reader.url(), [this](EventLogEvent& event) { return event.tsMs < fromMs_ && isQuiet(event); });
  try {
    match(
        reader.readFull(), [this](Reset<EventLogEvent>&& all) {
          keepLatestQuiet(all.rows);
          events_.rows.apply(Appended<EventLogEvent>{std::move(all.rows)});
        },
        [](Appended<EventLogEvent>&&) {});
  } catch (const std::system_error&) {
    // The next refresh tells of it.
  }
}

void DayStore::reachBack(std::int64_t fromMs) {
  *this = DayStore(root_, fromMs);
}

}  // namespace halvo
