#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Labels/LabelsSchema.h"

/// Adds rows to `labels.sqlite`; nothing is ever changed there. From any thread and any process.
namespace halvo::LabelsWriter {

inline constexpr std::string_view sourceValue = "in_app";           ///< a check-in's quick thumbs
inline constexpr std::string_view rampSourceValue = "in_app_ramp";  ///< a moment under review

enum class Vote {
  matches,  ///< kept as "on_task"
  off       ///< kept as "off_task"
};

/// The label was not written. `what()` holds the database's words.
class LabelsWriterError : public std::runtime_error {
 public:
  enum class Kind { openFailed, prepareFailed, stepFailed };
  LabelsWriterError(Kind kind, const std::string& text) : std::runtime_error(text), kind_(kind) {}
  Kind kind() const { return kind_; }

 private:
  Kind kind_;
};

/// What `label` may be.
inline constexpr std::span<const std::string_view> validLabels{LabelsSchema::labelValues};

struct Label {
  std::string label = {};
  std::optional<std::string> declaredTask = {};
  std::int64_t tickTsMs = 0;  ///< the judged moment: both ends of the row
  std::optional<std::string> notes = {};
  std::int64_t asOfMs = 0;
  std::string source{sourceValue};
  std::optional<bool> answeredBlind = {};  ///< absent: not known
  std::optional<std::string> userNote = {};
};
/// Makes the database (0600) and its table where they are missing; the calendar names the moment's hour. Throws `LabelsWriterError`; a
/// label that is none and a database that stays busy are `stepFailed`.
void insert(const Label& label, const Calendar& calendar, const std::filesystem::path& path);

struct VoteRow {
  Vote vote = Vote::matches;
  std::optional<std::string> declaredTask = {};
  std::int64_t tickTsMs = 0;
  std::optional<std::string> notes = {};
  std::int64_t asOfMs = 0;
};
void insert(const VoteRow& vote, const Calendar& calendar, const std::filesystem::path& path);

}  // namespace halvo::LabelsWriter
