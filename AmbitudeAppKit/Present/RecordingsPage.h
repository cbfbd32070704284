#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "CaptureShared/Foundation/Translation.h"
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
  std::string warning = {};         ///< that the next sweep takes more than what is too old
  std::string protection = {};      ///< what a label keeps
  std::string damage = {};          ///< of the settings' file; nothing is deleted until it is mended
  bool isSwitchedOff = false;       ///< the refusal is the person's own setting
  std::size_t toGo = 0;
  bool operator==(const RecordingsPage&) const = default;

  /// `damage` is left to the caller, as it is of a file.
  static RecordingsPage of(const RetentionRunner::Result& preview, const RetentionSettings& settings, const VideoRetentionSweep::FileOps& ops);
  /// What came of an applied run: "deleted: 3 file(s), 1.20 GB freed", then a line for each that could not be.
  static std::vector<std::string> outcome(const RetentionRunner::Result& applied);
  static std::string describe(const RetentionSettings& settings);
  static constexpr const char* restartWarning = trMark("the next sweep deletes what was recorded before the last start too");
};

}  // namespace halvo
