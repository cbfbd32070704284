#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CaptureShared/Foundation/RawValue.h"

/// `gate-gap-labels.jsonl`: whether a stretch in which the gate was never asked should have had a word. The last row of a stretch's
/// beginning counts: an open stretch goes on and gets another end.
namespace halvo::GateGapLabelWriter {

enum class Label { shouldHaveSpoken, fineToBeQuiet };

struct Row {
  std::int64_t v = 1;
  std::int64_t fromMs = 0, toMs = 0;
  bool isOpen = false;  ///< it had not ended when it was labelled
  Label label = Label::fineToBeQuiet;
  std::optional<std::string> note = {};
  std::string labeledAt = {};  ///< UTC ISO time

  static std::optional<Row> decode(std::string_view line);
  bool operator==(const Row&) const = default;
};

std::filesystem::path defaultURL(const std::filesystem::path& dataRoot);
/// Throws `JSONLAppendError`.
void append(const Row& row, const std::filesystem::path& url);
/// Throws `std::system_error`.
std::vector<Row> read(const std::filesystem::path& url);

}  // namespace halvo::GateGapLabelWriter

namespace halvo {
template <>
struct RawValues<GateGapLabelWriter::Label> {
  using Label = GateGapLabelWriter::Label;
  static constexpr std::array table{std::pair{Label::shouldHaveSpoken, "should_have_spoken"},
                                    std::pair{Label::fineToBeQuiet, "fine_to_be_quiet"}};
};
}  // namespace halvo
