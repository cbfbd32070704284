#include "CaptureShared/Intention/CurrentTask.h"

#include <cstdio>
#include <system_error>
#include <utility>

#include <unistd.h>

#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Foundation/LockedValue.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/UserFolders.h"
#include "CaptureShared/Intention/EventLog.h"

namespace halvo::CurrentTask {

namespace {

using Pair = std::pair<std::string, std::string>;

LockedValue<std::optional<Pair>>& reported() {
  static LockedValue<std::optional<Pair>> pair;
  return pair;
}

std::string debugForm(const std::string& text) { return JSONValue(Text::scrubbed(Text::prefix(text, 120))).dump(); }

}  // namespace

std::filesystem::path path() {
  const auto environment = processEnvironment();
  if (const auto file = value(environment, "AMBITCHECK_TASK_FILE"); file && !file->empty()) return *file;
  return UserFolders::home(environment) / ".ambitude/current-task.txt";
}

std::optional<std::string> read() {
  const auto projection = EventLog::read();
  std::optional<std::string> file;
  bool fileFailed = false;
  try {
    file = readFile(path());
  } catch (const std::system_error& error) {
    fileFailed = error.code() != std::errc::no_such_file_or_directory;
  }
  if (!projection) {
    // The file outlives the data root it was written for: without the root it says nothing about now.
    const bool logIsJustEmpty = DataPaths::isDataRootAvailable() && !fileFailed;
    std::error_code error;
    const auto log = EventLog::path();
    const bool logUnreadable =
        std::filesystem::exists(log, error) && (!std::filesystem::is_regular_file(log, error) || ::access(log.c_str(), R_OK) != 0);
    return logIsJustEmpty && !logUnreadable ? file : std::nullopt;
  }
  if (file && *file != *projection) {
    const Pair pair{*projection, *file};
    const bool isNew = reported().with([&](std::optional<Pair>& last) {
      if (last == pair) return false;
      last = pair;
      return true;
    });
    if (isNew)
      std::fprintf(stderr, "[CurrentTask] projection/file parity mismatch — projection=%s file=%s\n", debugForm(*projection).c_str(),
                   debugForm(*file).c_str());
  } else if (file) {
    reported().set(std::nullopt);
  }
  return projection;
}

}  // namespace halvo::CurrentTask
