#pragma once

#include <cstdio>
#include <filesystem>
#include <stop_token>
#include <string>

#include "AmbitudeCore/Coach/CoachStreamReader.h"
#include "CaptureShared/Foundation/Calendar.h"

namespace halvo {

/// The conversation in a terminal: shows it as it goes on, and sends each line that is typed. It lives off the event log alone; on a real
/// terminal the stream file shows each reply as it is written, until its row takes its place.
class TerminalChat {
 public:
  struct Config {
    std::filesystem::path dataRoot = {};
    std::string processName = "halvo";
    int inputFd = 0;
    std::FILE* output = stdout;
    std::int64_t historyMs = 24 * 3'600'000LL;  ///< how far back the conversation is shown at the start
    bool withLog = false;                       ///< verdicts, gate decisions and every event too
    bool withThinking = false;                      ///< what Lark thinks is shown too
    double pollSec = CoachStreamReader::pollSec;
  };

  TerminalChat(Config config, Calendar calendar);

  /// Runs until the token stops, the input ends or the output is closed; with no terminal behind the input, an ended input only ends the
  /// sending.
  void run(const std::stop_token& stop);

 private:
  void send(const std::string& text);

  Config config_;
  Calendar calendar_;
};

/// Appends what the person said to the event log, and answers the row's time. Throws `EventLogWriterError`.
std::int64_t sendUserMessage(const std::string& text, const std::filesystem::path& dataRoot, const std::string& processName);

}  // namespace halvo
