#include "AmbitudeAppKit/Live/TerminalChat.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "AmbitudeAppKit/Live/LiveLog.h"
#include "AmbitudeAppKit/Live/LiveReply.h"
#include "AmbitudeAppKit/Live/TerminalRegion.h"
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

namespace {

/// What is on the screen: settled lines, and at its foot the reply that is being written.
class Screen {
 public:
  Screen(const TerminalChat::Config& config, const Calendar& calendar)
      : config_(config),
        calendar_(calendar),
        log_(config.dataRoot),
        reply_(CoachStream::url(config.dataRoot), config.withThinking),
        isTerminal_(::isatty(::fileno(config.output))),
        showFromMs_(Clock::system().nowMs() - config.historyMs) {}

  /// One look at the files; false when whoever watched is gone.
  bool show() {
    std::string bytes;
    for (const auto& line : log_.poll()) {
      reply_.settle(line);
      if ((!config_.withLog && !LiveLog::isConversation(line.kind)) || (isHistory_ && line.tsMs < showFromMs_)) continue;
      bytes += foot_.erase();
      if (const auto thinking = LiveLog::renderThinking(line, calendar_); config_.withThinking && !thinking.empty()) bytes += thinking + "\n";
      bytes += LiveLog::render(line, calendar_) + "\n";
    }
    isHistory_ = false;
    if (isTerminal_) bytes += foot_.draw(reply_.look(Clock::system().nowMs(), calendar_), size());
    std::fputs(bytes.c_str(), config_.output);
    return std::fflush(config_.output) == 0 && !std::ferror(config_.output);
  }

 private:
  TerminalRegion::Size size() const {
    winsize window{};
    if (::ioctl(::fileno(config_.output), TIOCGWINSZ, &window) != 0 || window.ws_col == 0 || window.ws_row == 0) return {};
    return {window.ws_col, window.ws_row};
  }

  const TerminalChat::Config& config_;
  const Calendar& calendar_;
  LiveLog log_;
  LiveReply reply_;
  TerminalRegion foot_;
  bool isTerminal_, isHistory_ = true;
  std::int64_t showFromMs_;
};

}  // namespace

void TerminalChat::run(const std::stop_token& stop) {
  Screen screen(config_, calendar_);
  if (!screen.show()) return;
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
    if (!screen.show()) return;
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
