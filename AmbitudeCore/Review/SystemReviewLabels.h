#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "CaptureShared/Foundation/RawValue.h"

/// `system-review-labels.jsonl`: grades of the system's description of a moment and of its verdict. The last row of a moment counts. It
/// holds screen text that the person picked; nothing sends it anywhere.
namespace halvo::SystemReviewLabels {

enum class DescribeGrade { accurateAndSpecific, accurateButTooVague, wrong, hallucinated, overclaimedSpecificity };
enum class VerdictGrade { sound, rightAnswerWrongReason, usedAFalseFact, overweightedIrrelevantInput, missingInput };
enum class DescribeProvenance { logged, reconstructed };

/// A point picked in the clip, with a copy of what was there: a grade stands by itself when the logs have gone.
struct Marker {
  enum class Kind { frame, chatMessage };
  std::int64_t ordinal = 0;
  Kind kind = Kind::frame;
  std::int64_t atMs = 0;
  std::optional<std::string> frontmostApp = {}, windowTitle = {}, browserURL = {}, ocrText = {}, role = {}, text = {};
  bool operator==(const Marker&) const = default;
};

struct Row {
  std::int64_t v = 1;
  std::int64_t atMs = 0;
  std::optional<std::int64_t> decisionAtMs = {};
  std::optional<DescribeGrade> describeGrade = {};
  std::optional<VerdictGrade> verdictGrade = {};
  std::optional<DescribeProvenance> describeProvenance = {};
  std::optional<std::string> describeText = {}, describeComment = {}, verdictComment = {}, classifierState = {}, classifierReason = {};
  std::vector<Marker> markers = {};
  std::optional<std::string> note = {};
  std::string labeledAt = {};

  /// Nothing of the person's own: no grade, no marker, and no comment or note but blanks.
  bool isEmpty() const;
  std::string encode() const;
  /// Absent without `atMs`; a grade or a marker that is none is left out.
  static std::optional<Row> decode(std::string_view line);
  bool operator==(const Row&) const = default;
};

class WriteError : public std::runtime_error {
 public:
  enum class Kind { empty };
  WriteError() : std::runtime_error("there is nothing in it to keep") {}
  Kind kind() const { return Kind::empty; }
};

/// UTC ISO time, for `labeledAt`.
std::string timestamp(std::int64_t ms);
std::filesystem::path defaultURL(const std::filesystem::path& dataRoot);
/// Throws `WriteError`, `JSONLAppendError`.
void append(const Row& row, const std::filesystem::path& url);
/// Throws `std::system_error`.
std::vector<Row> read(const std::filesystem::path& url);

}  // namespace halvo::SystemReviewLabels

namespace halvo {
template <>
struct RawValues<SystemReviewLabels::DescribeGrade> {
  using Grade = SystemReviewLabels::DescribeGrade;
  static constexpr std::array table{
      std::pair{Grade::accurateAndSpecific, "accurateAndSpecific"}, std::pair{Grade::accurateButTooVague, "accurateButTooVague"},
      std::pair{Grade::wrong, "wrong"}, std::pair{Grade::hallucinated, "hallucinated"},
      std::pair{Grade::overclaimedSpecificity, "overclaimedSpecificity"}};
};
template <>
struct RawValues<SystemReviewLabels::VerdictGrade> {
  using Grade = SystemReviewLabels::VerdictGrade;
  static constexpr std::array table{
      std::pair{Grade::sound, "sound"}, std::pair{Grade::rightAnswerWrongReason, "rightAnswerWrongReason"},
      std::pair{Grade::usedAFalseFact, "usedAFalseFact"}, std::pair{Grade::overweightedIrrelevantInput, "overweightedIrrelevantInput"},
      std::pair{Grade::missingInput, "missingInput"}};
};
template <>
struct RawValues<SystemReviewLabels::DescribeProvenance> {
  using Provenance = SystemReviewLabels::DescribeProvenance;
  static constexpr std::array table{std::pair{Provenance::logged, "logged"}, std::pair{Provenance::reconstructed, "reconstructed"}};
};
template <>
struct RawValues<SystemReviewLabels::Marker::Kind> {
  using Kind = SystemReviewLabels::Marker::Kind;
  static constexpr std::array table{std::pair{Kind::frame, "frame"}, std::pair{Kind::chatMessage, "chatMessage"}};
};
}  // namespace halvo
