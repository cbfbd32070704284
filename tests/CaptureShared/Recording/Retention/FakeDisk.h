#pragma once

#include <ranges>

#include "CaptureShared/Recording/Retention/RetentionRunner.h"

namespace halvo::test {

/// Display folders in memory, with the faults that a disk has.
struct FakeDisk {
  struct File {
    std::int64_t bytes = 0;
    std::optional<std::int64_t> writtenMs = {};
    bool cantBeRemoved = false;
    int steadyLooks = 99;  ///< how often its last write is seen before someone writes to it
  };
  using Folder = std::map<std::string, File>;
  using Path = std::filesystem::path;

  std::map<std::string, Folder> folders = {};
  std::set<std::string> unlistable = {};  ///< "video" for the folder of the folders
  RetentionSettings settings = {};
  std::optional<LabelledHours::Hours> labelled = LabelledHours::Hours();
  std::optional<std::int64_t> bootMs = {};
  PurgeGuard::Fence fence = {.roots = {"/data"}, .machineIsProtected = false};
  bool isMounted = true, settingsCantBeWritten = false;
  std::function<void()> atRemoval = [] {};

  RetentionRunner::Result run(bool apply, std::int64_t nowMs, const Calendar& calendar, const LogSink& log = {}) {
    const RetentionRunner::Environment environment{.settings = [this] { return settings; },
                                                   .persistSettings = [this](const RetentionSettingsStore::Change& how) { persist(how); },
                                                   .videoDir = [] { return "/data/video"; },
                                                   .dataRootExists = [this] { return isMounted; },
                                                   .labelledHours = [this](auto, auto) { return labelled; },
                                                   .currentBootMs = [this] { return bootMs; },
                                                   .fence = [this] { return fence; },
                                                   .ops = {[this](const Path& folder) { return list(folder.filename()); },
                                                           [this](const Path& file) { return at(file).bytes; },
                                                           [this](const Path& file) { remove(file); },
                                                           [this](const Path& file) { return look(at(file)); }}};
    return RetentionRunner::run({.apply = apply, .nowMs = nowMs, .calendar = calendar, .environment = environment, .log = log});
  }
  std::size_t files() const { return folders.at("display-0").size() + folders.at("display-1").size(); }

 private:
  File& at(const Path& file) { return folders.at(file.parent_path().filename()).at(file.filename()); }
  void persist(const RetentionSettingsStore::Change& how) {
    if (settingsCantBeWritten) throw std::system_error(ENOSPC, std::generic_category());
    how(settings);
  }
  std::vector<std::string> list(const std::string& folder) const {
    if (unlistable.contains(folder)) throw std::system_error(EACCES, std::generic_category());
    if (folder == "video") return {"display-1", "notes", "display-0"};
    const auto names = folders.at(folder) | std::views::keys;
    return {names.begin(), names.end()};
  }
  void remove(const Path& file) {
    if (at(file).cantBeRemoved) throw std::system_error(EIO, std::generic_category());
    folders.at(file.parent_path().filename()).erase(file.filename());
    atRemoval();
  }
  static std::optional<std::int64_t> look(File& file) {
    if (file.writtenMs && file.steadyLooks-- == 0) ++*file.writtenMs;
    return file.writtenMs;
  }
};

}  // namespace halvo::test
