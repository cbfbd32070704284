#include "AmbitudeAppKit/Live/TerminalChat.h"

#include <poll.h>
#include <unistd.h>

#include "AmbitudeAppKit/Live/LiveLog.h"
#include "AmbitudeAppKit/Live/TerminalText.h"
#include "AmbitudeCore/Coach/AppChatEvents.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/EventLog/EventLogWriter.h"
#include "CaptureShared/EventLog/LineSplitter.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo {

TerminalChat::TerminalChat(Config config, Calendar calendar) : config_(std::move(config)), calendar_(calendar) {}

std::int64_t sendUserMessage(const std::string& text, const std::filesystem::path& dataRoot, const std::string& processName) {
  const auto now = Clock::system().nowMs();
  EventLogWriter::append(AppChatEvents::userMessage(Text::scrubbed(text), now), DataPaths::events(dataRoot), processName);
  return now;
}

void TerminalChat::run(const std::stop_token& stop) {
  LiveLog log(config_.dataRoot);
  const auto showFromMs = Clock::system().nowMs() - config_.historyMs;
  auto show = [&](bool isHistory) {
    for (const auto& line : log.poll())
      if ((config_.withLog || LiveLog::isConversation(line.kind)) && (!isHistory || line.tsMs >= showFromMs))
        std::fputs((LiveLog::render(line, calendar_) + "\n").c_str(), config_.output);
    // Whoever watched is gone.
    return std::fflush(config_.output) == 0 && !std::ferror(config_.output);
  };
  if (!show(true)) return;
  LineSplitter typed;
  bool inputOpen = true;
  while (!stop.stop_requested()) {
    pollfd input{config_.inputFd, POLLIN, 0};
    const int ready = ::poll(&input, inputOpen ? 1 : 0, static_cast<int>(config_.pollSec * 1000));
    if (ready > 0 && input.revents) {
      char buffer[4096];
      const auto got = ::read(config_.inputFd, buffer, sizeof buffer);
      if (got > 0)
        typed.feed(std::string_view(buffer, static_cast<std::size_t>(got)), [&](std::string_view line) { send(std::string(line)); });
      else {
        // What was typed last need not end in a newline.
        send(std::string(typed.pending()));
        if (::isatty(config_.inputFd)) return;
        inputOpen = false;
      }
    }
    if (!show(false)) return;
  }
}

void TerminalChat::send(const std::string& text) {
  if (Text::isBlank(text)) return;
  try {
    sendUserMessage(text, config_.dataRoot, config_.processName);
  } catch (const EventLogWriterError& error) {
    // The words stay with the person, who can send them again.
    std::fprintf(config_.output, "not sent (%s): %s\n", error.what(), TerminalText::oneLine(text).c_str());
  }
}

}  // namespace halvo
