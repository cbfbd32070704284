#include "CaptureShared/DataRoot/DataRootLayout.h"

#include <algorithm>
#include <cerrno>

#include <unistd.h>

#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::DataRootLayout {

namespace {

Entry file(std::string name, std::string writer) { return {Exact{std::move(name)}, File{}, std::move(writer)}; }
Entry wholesale(std::string name, std::string writer) { return {Exact{std::move(name)}, DirectoryWholesale{}, std::move(writer)}; }
Entry folder(std::string name, std::string writer, std::vector<Entry> children) {
  return {Exact{std::move(name)}, Directory{std::move(children)}, std::move(writer)};
}

std::vector<Entry> makeEntries() {
  std::vector<Entry> list;
  auto database = [&](const std::string& name, const std::string& writer) {
    for (const char* companion : {"", "-wal", "-shm", "-journal"}) list.push_back(file(name + companion, writer));
  };
  database("signals.sqlite", "capture Signals; checker/set_task.py");
  database("labels.sqlite", "app ramp review / labeling; ClassifierVerify LabelsWriter");
  const std::vector<Entry> rest{
      file("manifest.json", "capture Supervisor — Manifest.write()"),
      file("classifier-cadence.json", "ClassifierVerify tick"),
      file("checker-log.jsonl", "ClassifierVerify tick"),
      file("classifier-shadow.jsonl", "ClassifierVerify shadow"),
      file("classifier-describe.jsonl", "ClassifierDescribeLog"),
      file("classifier-tick-energy.jsonl", "ClassifierTickEnergyLog"),
      file("coach-turn-energy.jsonl", "CoachTurnEnergyLog (CoachDriver)"),
      file("gate-decisions.jsonl", "GateDecisionLog (CoachDriver)"),
      file("gate-labels.jsonl", "GateLabelWriter"),
      file("gate-gap-labels.jsonl", "GateGapAnalysis"),
      file("turn-usage.jsonl", "TurnUsageRecord"),
      file("coach-feedback.jsonl", "CoachFeedbackWriter"),
      file("coach-corrections.jsonl", "CoachCorrections"),
      file("coach-preferences.json", "CoachPreferences"),
      file("memory-wipes.jsonl", "MemoryWipe"),
      file("meds-log.jsonl", "MedsLog"),
      file("meds-ask-answers.jsonl", "MedsAskAnswerLog"),
      file("reaction-polls.jsonl", "ReactionPollLog"),
      file("reminder-polls.jsonl", "ReminderPollLog"),
      file("reason-human-labels.jsonl", "ReasonLabelWriter"),
      file("system-review-labels.jsonl", "SystemReviewLabels"),
      file("provider-pricing.json", "ProviderPricingResolver"),
      file(".metadata_never_index", "SpotlightExclusion (#1148)"),
      folder("video", "DataPaths.videoDir",
             {file(".metadata_never_index", "SpotlightExclusion (#1148)"),
              {Pattern{"display-", ""}, DirectoryWholesale{}, "capture Capturer — hour .mkv segments, segments-*.csv, frame sidecars"}}),
      folder("io-layer", "io-layer event log",
             {file(".metadata_never_index", "SpotlightExclusion (#1148)"), file("events.jsonl", "EventLogWriter, checker/set_task.py, app"),
              file("coach-driver.pid", "CoachDriver"), file("coach-stream.jsonl", "CoachStream"), file("layer3-floor.json", "Layer3Conversation")}),
      folder("memory", "coach memory",
             {wholesale("period-digests", "MemoryStore"), file("standing-memory.json", "MemoryStore"),
              file("standing-memory.sequential.json", "MemoryStore"), file(".dream.lock", "DreamPass")}),
      folder("coach-fixtures", "CoachFeedbackWriter", {{Pattern{"turn-", ".json"}, File{}, "CoachFeedbackWriter"}}),
      wholesale("model-request-dumps", "RequestDump (CoachDriver, opt-in)"),
      wholesale("ramp-proxy-bench", "ClassifierVerify ramp bench"),
  };
  list.insert(list.end(), rest.begin(), rest.end());
  return list;
}

const Entry* entryFor(std::string_view name, const std::vector<Entry>& level) {
  const auto found = std::find_if(level.begin(), level.end(), [&](const Entry& entry) { return matches(entry.name, name); });
  return found == level.end() ? nullptr : &*found;
}

/// At the top both lists count.
const Entry* topEntryFor(std::string_view name) {
  const auto* entry = entryFor(name, entries());
  return entry ? entry : entryFor(name, supplementary());
}

/// The names in a folder, sorted. Throws `std::filesystem::filesystem_error`.
std::vector<std::string> namesIn(const fs::path& folder) {
  std::vector<std::string> names;
  for (const auto& item : fs::directory_iterator(folder)) names.push_back(item.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

void walk(const fs::path& root, const std::string& relativeFolder, const std::vector<Entry>* level, Survey& survey) {
  for (const auto& name : namesIn(root / relativeFolder)) {
    const auto relative = relativeFolder.empty() ? name : relativeFolder + "/" + name;
    std::error_code error;
    const auto type = fs::symlink_status(root / relative, error).type();
    const auto* entry = level ? entryFor(name, *level) : topEntryFor(name);
    if (error || !entry) {
      survey.unknown.push_back(relative);
      continue;
    }
    const auto* directory = std::get_if<Directory>(&entry->kind);
    if (!directory || type != fs::file_type::directory) {
      // A link that bears an owned name is ours to unlink, whatever it points at. A folder where a file should be is not ours.
      const bool folderInPlaceOfFile = type == fs::file_type::directory && std::holds_alternative<File>(entry->kind);
      (folderInPlaceOfFile ? survey.unknown : survey.owned).push_back(relative);
      continue;
    }
    survey.containers.push_back(relative);
    try {
      walk(root, relative, &directory->children, survey);
    } catch (const fs::filesystem_error&) {
      survey.unknown.push_back(relative);
    }
  }
}

}  // namespace

bool matches(const Name& name, std::string_view text) {
  return match(
      name, [&](const Exact& exact) { return exact.text == text; },
      [&](const Pattern& pattern) {
        return text.size() > pattern.prefix.size() + pattern.suffix.size() && text.starts_with(pattern.prefix) && text.ends_with(pattern.suffix);
      });
}

const std::vector<Entry>& entries() {
  static const std::vector<Entry> list = makeEntries();
  return list;
}

const std::vector<Entry>& supplementary() {
  static const std::vector<Entry> list{
      file("signals-stale-note.json", "SignalsStaleNoteStore"),
      file("capture-removal-intent.json", "CaptureRemovalIntentStore"),
      file("coach-corrections.jsonl.lock", "CoachCorrections"),
      file("review-batch.json", "ReviewBatch"),
      file("recording-controls.json", "RecordingControls"),
      file("supervisor.pid", "capture Supervisor"),
      // What a rewrite that was killed left behind.
      {Pattern{".coach-feedback-", ""}, File{}, "CoachFeedbackWriter"},
      // A database that could not be opened is set aside under such a name and never deleted by anyone but its owner.
      {Pattern{"signals.sqlite.corrupt-", ""}, File{}, "capture Signals"},
  };
  return list;
}

bool covers(std::string_view relativePath) {
  const auto parts = Text::split(relativePath, '/');
  // A path that climbs names something else than it seems to.
  if (std::any_of(parts.begin(), parts.end(), [](std::string_view part) { return part == ".." || part == "."; })) return false;
  const std::vector<Entry>* level = nullptr;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    const auto* entry = level ? entryFor(parts[i], *level) : topEntryFor(parts[i]);
    if (!entry) return false;
    const bool last = i + 1 == parts.size();
    if (std::holds_alternative<DirectoryWholesale>(entry->kind)) return true;
    if (std::holds_alternative<File>(entry->kind)) return last;
    if (last) return true;
    level = &std::get<Directory>(entry->kind).children;
  }
  return false;
}

Survey survey(const fs::path& root) {
  Survey result;
  try {
    walk(root, "", nullptr, result);
  } catch (const fs::filesystem_error&) {
    // A root that can't be listed holds nothing that we may touch.
  }
  return result;
}

RemovalOps RemovalOps::real() {
  return {.removeTree = [](const fs::path& path) { fs::remove_all(path); },
          .removeEmptyFolder =
              [](const fs::path& folder) {
                if (::rmdir(folder.c_str()) != 0) throw std::system_error(errno, std::generic_category(), folder.string());
              }};
}

Removal removeOwned(const fs::path& root, bool machineIsProtected, const RemovalOps& ops) {
  Removal removal;
  if (machineIsProtected) {
    removal.failures.push_back(root.string() + ": " + protectedMachineExplanation);
    return removal;
  }
  const auto plan = survey(root);
  for (const auto& relative : plan.owned) {
    try {
      ops.removeTree(root / relative);
    } catch (const std::system_error& error) {
      std::error_code ignored;
      if (fs::symlink_status(root / relative, ignored).type() != fs::file_type::not_found)
        removal.failures.push_back((root / relative).string() + ": " + error.code().message());
    }
  }
  auto removeIfEmpty = [&](const fs::path& folder) {
    try {
      ops.removeEmptyFolder(folder);
      return true;
    } catch (const std::system_error&) {
      return false;
    }
  };
  // The deepest first, so that an emptied child does not keep its parent.
  for (auto container = plan.containers.rbegin(); container != plan.containers.rend(); ++container)
    if (!removeIfEmpty(root / *container)) removal.leftBehind.push_back((root / *container).string());
  removal.rootRemoved = removeIfEmpty(root);
  return removal;
}

}  // namespace halvo::DataRootLayout
