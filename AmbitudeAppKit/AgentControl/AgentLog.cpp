#include "AmbitudeAppKit/AgentControl/AgentLog.h"

#include <system_error>

#include "CaptureShared/DataRoot/AgentLogging.h"
#include "CaptureShared/DataRoot/AgentProcess.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo {

namespace {

constexpr std::uint64_t window = 64 * 1024;

std::vector<std::string> lastLines(const std::filesystem::path& log, std::size_t count) {
  const auto file = FileHandle::openForRead(log);
  const auto size = static_cast<std::uint64_t>(FileIdentity::of(file).size);
  const auto text = file.readAt(size > window ? size - window : 0, window);
  auto pieces = Text::split(text, '\n');
  if (!pieces.empty() && pieces.back().empty()) pieces.pop_back();
  if (size > window && !pieces.empty()) pieces.erase(pieces.begin());  // begins in the middle
  if (pieces.size() > count) pieces.erase(pieces.begin(), pieces.end() - static_cast<std::ptrdiff_t>(count));
  return {pieces.begin(), pieces.end()};
}

}  // namespace

AgentLog AgentLog::read(BackgroundAgent agent, std::size_t count) {
  AgentLog log{.file = AgentLogging::logURL(AgentProcess::logSubdirectory, std::string(facts(agent).program))};
  try {
    log.lines = lastLines(log.file, count);
  } catch (const std::system_error& error) {
    log.trouble = error.code().message();
  }
  return log;
}

}  // namespace halvo
