#include "agents/CoachDriver/UserMessageWatch.h"

#include <system_error>

#include "CaptureShared/EventLog/EventLogReader.h"
#include "CaptureShared/EventLog/LineSplitter.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/FileHandle.h"

namespace halvo {

namespace {

constexpr double pollSec = 0.2;
constexpr std::int64_t maxReadBytes = 1 << 20;

bool isUserMessage(std::string_view line) {
  if (line.find("app_chat_message") == std::string_view::npos) return false;
  const auto event = EventLogReader::decode(line);
  const auto* role = event && event->type == "app_chat_message" ? event->text("role") : nullptr;
  return role && *role == "user";
}

}  // namespace

UserMessageWatch::UserMessageWatch(const std::filesystem::path& events, std::int64_t fromOffset, const std::stop_token& outer)
    : forward_(outer, [this] { source_.request_stop(); }), thread_([this, events, fromOffset](const std::stop_token& own) {
        const auto clock = Clock::system();
        LineSplitter lines;
        for (auto at = fromOffset; !own.stop_requested(); clock.wait(pollSec, own)) {
          try {
            const auto size = FileIdentity::of(events).size;
            if (size <= at) continue;
            const auto bytes = FileHandle::openForRead(events).readAt(static_cast<std::uint64_t>(at),
                                                                      static_cast<std::size_t>(std::min(size - at, maxReadBytes)));
            at += static_cast<std::int64_t>(bytes.size());
            lines.feed(bytes, [&](std::string_view line) {
              if (isUserMessage(line)) source_.request_stop();
            });
          } catch (const std::system_error&) {
            // A log that can't be read now is the loop's to tell of; here nobody is kept waiting by it.
          }
        }
      }) {}

UserMessageWatch::~UserMessageWatch() = default;

}  // namespace halvo
