#include "CaptureShared/EventLog/ClassifierLogTail.h"

#include <algorithm>

#include "CaptureShared/EventLog/LineSplitter.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Records/ClassifierTick.h"

namespace halvo::ClassifierLogTail {

LogFileRead::Outcome<Result> read(const Request& request) {
  return LogFileRead::attempt([&] {
    Result result;
    const auto size = FileIdentity::of(request.file).size;
    const auto file = FileHandle::openForRead(request.file);
    std::string carried;  // the front of the chunk before, which is no whole line yet
    bool tornTail = true;
    auto at = size;
    std::vector<Row> newestFirst;
    auto take = [&](std::string_view line) {
      const auto tick = line.empty() ? std::nullopt : ClassifierTick::decode(line);
      if (!tick) return true;
      if (request.sinceMs)
        if (const auto ms = tick->atMs(); ms && *ms < *request.sinceMs) return false;
      newestFirst.push_back({tick->at, tick->state});
      return true;
    };
    bool wantsMore = true;
    while (wantsMore && at > 0) {
      if (static_cast<std::size_t>(result.bytesRead) >= request.maxBytes) {
        result.truncated = true;
        break;
      }
      const auto step = std::min({static_cast<std::int64_t>(std::max<std::size_t>(request.chunkBytes, 1)), at,
                                  static_cast<std::int64_t>(request.maxBytes) - result.bytesRead});
      at -= step;
      result.bytesRead += step;
      auto chunk = file.readAt(static_cast<std::uint64_t>(at), static_cast<std::size_t>(step)) + carried;
      if (tornTail) {
        // Only what ends in a newline is a line.
        const auto lastNewline = chunk.rfind('\n');
        if (lastNewline == std::string::npos) {
          carried = std::move(chunk);
          continue;
        }
        chunk.resize(lastNewline + 1);
        tornTail = false;
      }
      std::string_view rest(chunk);
      while (wantsMore) {
        if (!rest.empty() && rest.back() == '\n') rest.remove_suffix(1);
        const auto newline = rest.rfind('\n');
        if (newline == std::string_view::npos) break;
        wantsMore = take(rest.substr(newline + 1));
        rest = rest.substr(0, newline + 1);
      }
      carried = rest;
    }
    if (wantsMore && at == 0 && !tornTail) take(carried);
    result.ticks.assign(newestFirst.rbegin(), newestFirst.rend());
    return result;
  });
}

std::vector<std::string> lastLines(const std::filesystem::path& file, std::size_t maxBytes) {
  const auto size = static_cast<std::size_t>(FileIdentity::of(file).size);
  const auto from = size > maxBytes ? size - maxBytes : 0;
  const auto bytes = FileHandle::openForRead(file).readAt(from, size - from);
  std::string_view text(bytes);
  if (from > 0) text.remove_prefix(std::min(text.size(), text.find('\n') == std::string_view::npos ? text.size() : text.find('\n') + 1));
  std::vector<std::string> lines;
  LineSplitter splitter;
  splitter.feed(text, [&](std::string_view line) { lines.emplace_back(line); });
  return lines;
}

}  // namespace halvo::ClassifierLogTail
