#include "AmbitudeCore/Review/ReviewDraw.h"

#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "AmbitudeCore/Gate/GateDecisionLog.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/EventLog/IncrementalJSONLReader.h"
#include "CaptureShared/EventLog/LogTail.h"
#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Labels/AnsweredMoments.h"
#include "CaptureShared/Labels/LabelsSchema.h"

namespace halvo::ReviewDraw {

namespace {

namespace fs = std::filesystem;
using RampSampleSelector::SamplingMode;

std::vector<ClassifierTick> recentTicks(const fs::path& log, std::int64_t fromMs) {
  try {
    auto reader = JSONLReaders::classifierTicks(log);
    reader.startAt(LogTail::offsetOf(fromMs, log, [](std::string_view line) {
      const auto tick = ClassifierTick::decode(line);
      return tick ? tick->atMs() : std::nullopt;
    }));
    return match(
        reader.read(), [](Reset<ClassifierTick>&& all) { return std::move(all.rows); },
        [](Appended<ClassifierTick>&& more) { return std::move(more.rows); });
  } catch (const std::system_error& error) {
    if (error.code() != std::errc::no_such_file_or_directory) throw;
    return {};
  }
}

}  // namespace

void makeLabels(const fs::path& root) {
  SQLiteDB db(DataPaths::labelsDB(root), SQLiteDB::Role::owner);
  LabelsSchema::create(db);
}

std::optional<ReviewSession> draw(const Request& request, const Calendar& calendar) {
  makeLabels(request.root);
  RampSampleSelector::RampScreeningReporter reporter{.requested = request.limit, .onProgress = request.onProgress};
  if (reporter.onProgress) reporter.onProgress(RampSampleSelector::RampLoadPhase::ReadingLogs());
  const auto places = ReviewSession::Places::under(request.root);
  RampSampleSelector::Request selection{.asOfMs = request.asOfMs, .alreadyLabeledMs = AnsweredMoments::rampLabeledTickMs(places.labels)};
  selection.limit = request.limit;
  selection.seed = request.seed.value_or(static_cast<std::uint64_t>(request.asOfMs));
  if (request.isRenderable) selection.isRenderable = reporter.watching(request.isRenderable);
  const auto ticks = recentTicks(DataPaths::checkerLog(request.root), request.asOfMs - selection.maxAgeMs);
  const auto decisions = GateDecisionLog::read(GateDecisionLog::defaultURL(request.root));
  selection.ticks = ticks, selection.decisions = decisions;
  std::optional<std::string> notice;
  std::vector<RampSampleSelector::Sample> samples;
  if (request.mode == SamplingMode::verdictBlind) {
    auto drawn = RampSampleSelector::selectVerdictBlindBatch(selection);
    samples = std::move(drawn.samples), notice = drawn.starvationNotice();
  } else {
    samples = RampSampleSelector::selectBatch(selection);
  }
  if (reporter.onProgress) reporter.onProgress(RampSampleSelector::RampLoadPhase::Ready());
  if (samples.empty()) return std::nullopt;
  auto batch = ReviewBatch::make(std::move(samples), request.mode, selection.seed, request.asOfMs);
  batch.notice = std::move(notice);
  return ReviewSession(std::move(batch), places, calendar);
}

}  // namespace halvo::ReviewDraw
