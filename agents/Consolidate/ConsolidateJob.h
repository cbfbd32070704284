#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <vector>

#include "AmbitudeCore/Backends/ModelBackend.h"
#include "AmbitudeCore/Memory/ConsolidationPasses.h"
#include "AmbitudeCore/Memory/DreamSchedule.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Environment.h"
#include "Platform/Power/PowerSource.h"
#include "agents/Consolidate/ConsolidationLogRead.h"

namespace halvo {

/// What the nightly job stands in.
struct ConsolidateSurroundings {
  std::filesystem::path dataRoot = {};
  /// Makes the job's backend, which goes on retrying while the function it gets says so.
  std::function<std::shared_ptr<ModelBackend>(const std::function<bool()>& shouldKeepWaiting)> makeBackend = {};
  PowerSource* power = nullptr;
  Environment environment = {};
  Clock clock = Clock::system();
  Calendar calendar = Calendar::local();
  LogSink log = {};
};

struct ConsolidateOptions {
  bool sequential = false;                   ///< fold into the sequential state instead of regenerating
  bool now = false;                          ///< whatever the schedule says, and whoever is there; the guardrails hold all the same
  bool dryRun = false;                       ///< say what would be done
  std::optional<std::size_t> backfill = {};  ///< fold at most so many digests, one a call; started by hand, so as with `now`
};

/// The nightly job: decides, runs one pass, tells the event log, looks over the coach's output, ends.
class ConsolidateJob {
 public:
  /// Four a day: a stretch of a day that one summary can hold.
  static constexpr std::int64_t stepIntervalSec = 21'600;

  ConsolidateJob(ConsolidateSurroundings surroundings, ConsolidateOptions options)
      : surroundings_(std::move(surroundings)), options_(options) {}

  /// The exit status: 0, or 1 when the pass failed. Never throws; a stop ends it between or within model calls.
  int run(const std::stop_token& stop);

 private:
  int runPass(const std::stop_token& stop);
  DreamSchedule::Decision decide(const MemoryConsolidation::Pass& pass) const;
  std::optional<PassStop> checkpoint();
  bool shouldYield() const;
  template <class Outcome>
  int conclude(const Outcome& outcome);
  void deferred(const PassStop& stop);
  int failed(const std::string& reason, std::int64_t periodsPending);
  void audit();
  void append(const EventLogEvent& event);
  bool isForced() const { return options_.now || options_.backfill; }

  ConsolidateSurroundings surroundings_;
  ConsolidateOptions options_;
  std::int64_t startedMs_ = 0;
  std::vector<PeriodDigest> digests_;
  ConsolidationLogRead::Result log_;
  bool isDeferred_ = false;  ///< an earlier pass was ended for power and none has gone on since
  std::string saidLowPower_;
};

}  // namespace halvo
