#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "CaptureShared/Recording/Retention/RetentionRunner.h"
#include "CaptureShared/Recording/Retention/RetentionSettings.h"

namespace halvo {

/// What of the recordings would be deleted and what is kept, with the reason of each.
struct RecordingsPage {
  struct Row {
    std::string display = {};  ///< its folder
    std::string filename = {};
    std::int64_t bytes = 0;
    std::string verdict = {};
    std::string reason = {};
    bool isToGo = false;
    bool operator==(const Row&) const = default;
  };
  std::vector<Row> rows = {};       ///< by display, then by name
  std::string settings = {};        ///< "recordings are deleted after: 1 week; on restart: off"
  std::string summary = {};         ///< "to delete: 3 file(s), 1.20 GB; to keep: 40"; empty for a refusal
  std::string refusal = {};         ///< why nothing is deleted
  bool isSwitchedOff = false;       ///< the refusal is the person's own setting
  std::size_t toGo = 0;
  bool operator==(const RecordingsPage&) const = default;

  static RecordingsPage of(const RetentionRunner::Result& preview, const RetentionSettings& settings, const VideoRetentionSweep::FileOps& ops);
  /// What came of an applied run: "deleted: 3 file(s), 1.20 GB freed", then a line for each that could not be.
  static std::vector<std::string> outcome(const RetentionRunner::Result& applied);
  static std::string describe(const RetentionSettings& settings);
};

}  // namespace halvo
