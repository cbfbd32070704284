#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <stdexcept>
#include <vector>

#include "AmbitudeCore/Folds/Declaration.h"
#include "AmbitudeCore/Gate/GateOutcome.h"
#include "CaptureShared/Records/ClassifierTick.h"
#include "CaptureShared/Records/EventLogEvent.h"
#include "CaptureShared/Records/GateDecisionRecord.h"

namespace halvo {

/// A record that has no JSON form, as with text that is not UTF-8.
class GateDecisionLogError : public std::runtime_error {
 public:
  enum class Kind { notAnObject };
  GateDecisionLogError() : std::runtime_error("the decision does not encode as a JSON object") {}
  Kind kind() const { return Kind::notAnObject; }
};

/// `gate-decisions.jsonl`: for review only. The gate never reads it.
namespace GateDecisionLog {

using Commitment = halvo::Commitment;

/// "gate-decisions.jsonl" under the data root.
std::filesystem::path defaultURL(const std::filesystem::path& dataRoot);

/// What was decided and what was known at `asOfMs`: the newest judgment with how long its state had held, and the commitment in force.
GateDecisionRecord record(const GateOutcome& outcome, std::span<const EventLogEvent> events, std::span<const ClassifierTick> ticks,
                          std::int64_t asOfMs);

/// Throws `GateDecisionLogError`, or what the append throws.
void append(const GateDecisionRecord& record, const std::filesystem::path& url);
/// The records in file order, with a limit the newest so many; empty when there is no file. A line that does not decode is skipped. Throws
/// `std::system_error` when the file can't be read.
std::vector<GateDecisionRecord> read(const std::filesystem::path& url, std::optional<std::size_t> limit = {});

/// True from `leadSec` before the end of the time in force, and for ever after it until the commitment changes; false without one.
bool isNearOrPastCommitmentBoundary(std::span<const EventLogEvent> events, std::int64_t asOfMs, std::int64_t leadSec);

}  // namespace GateDecisionLog
}  // namespace halvo
