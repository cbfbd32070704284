#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "CaptureShared/Foundation/RawValue.h"

/// `reason-human-labels.jsonl`: whether the sentence that the classifier gave for a verdict was right. The last row of a moment counts.
namespace halvo::ReasonLabelWriter {

enum class Rule { citedAbsentEvidence, topicNotMoment, inaccurate };
struct ReasonWasRight {
  bool operator==(const ReasonWasRight&) const = default;
};
struct ReasonWasWrong {
  Rule rule = Rule::inaccurate;
  bool operator==(const ReasonWasWrong&) const = default;
};
using Judgement = std::variant<ReasonWasRight, ReasonWasWrong>;

std::filesystem::path defaultURL(const std::filesystem::path& dataRoot);

struct Request {
  Judgement judgement = {};
  std::int64_t atMs = 0;                     ///< the verdict's time
  std::optional<std::string> state = {};     ///< the verdict
  std::int64_t asOfMs = 0;
};
/// Appends {"v", "atMs", "judgement" ("right" or "wrong"), "rule" (of a wrong one), "state", "labeledAt"}. Throws `JSONLAppendError`.
void write(const Request& request, const std::filesystem::path& url);

}  // namespace halvo::ReasonLabelWriter

namespace halvo {
template <>
struct RawValues<ReasonLabelWriter::Rule> {
  using Rule = ReasonLabelWriter::Rule;
  static constexpr std::array table{std::pair{Rule::citedAbsentEvidence, "cited_absent_evidence"},
                                    std::pair{Rule::topicNotMoment, "topic_not_moment"}, std::pair{Rule::inaccurate, "inaccurate"}};
};
}  // namespace halvo
