#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "AmbitudeCore/Gate/GateFeedbackLadder.h"
#include "AmbitudeCore/Gate/GateLabel.h"

/// `gate-labels.jsonl`: whether the gate was right to speak or to stay quiet. The last row of a decision counts.
namespace halvo::GateLabelWriter {

using Label = GateLabel;

struct Row {
  std::int64_t v = 1;
  std::int64_t atMs = 0;  ///< the decision's time
  Label label = Label::rightToStayQuiet;
  std::string decision = {};  ///< "check_in" or "no_check_in"
  std::optional<std::string> note = {};
  std::string labeledAt = {};  ///< UTC ISO time

  static std::optional<Row> decode(std::string_view line);
  bool operator==(const Row&) const = default;
};

/// The two labels that apply to a decision; none for a failed one.
std::vector<Label> choices(std::string_view decision);

class WriteError : public std::runtime_error {
 public:
  enum class Kind { polarityMismatch };
  static WriteError polarityMismatch(Label label, std::string_view decision);
  Kind kind() const { return Kind::polarityMismatch; }

 private:
  using std::runtime_error::runtime_error;
};

std::filesystem::path defaultURL(const std::filesystem::path& dataRoot);
/// Throws `WriteError` for a label that contradicts its decision, with nothing written, and `JSONLAppendError`.
void append(const Row& row, const std::filesystem::path& url);
/// Throws `std::system_error`.
std::vector<Row> read(const std::filesystem::path& url);
/// What the ladder replays.
std::vector<GateFeedbackLadder::LabelRow> ladderRows(const std::vector<Row>& rows);

}  // namespace halvo::GateLabelWriter
