#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/PracticeModel/PracticeFault.h"
#include "tools/PracticeModel/PracticeScript.h"

namespace halvo {

/// The inference server's answers: which path says what, how a reply is laid out, when a prompt is too long. Pure but for the script and
/// the clock it is given; knows nothing of sockets.
class PracticeDialect {
 public:
  struct Options {
    std::int64_t contextTokens = 16384;  ///< what the gate's one long message needs
    PracticeFault fault = PracticeFault::none;
    double faultSec = 3;  ///< how long `loading` lasts, and the pause of `slow`
  };
  struct Question {
    std::string method = {};
    std::string path = {};
    std::string body = {};
    std::int64_t nowMs = 0;
  };
  struct Answer {
    int status = 200;
    std::string body = {};                      ///< of a plain answer
    std::vector<std::string> events = {};       ///< the chunks of a stream; empty: a plain answer
    double pauseSec = 0;                        ///< before the first byte
    double eventPauseSec = 0;                   ///< between two chunks
    PracticeFault fault = PracticeFault::none;  ///< `hang`, `garbage` and `dieMidStream` are the sender's to play
  };

  /// `startedMs`: when the server came up, from which `loading` counts.
  PracticeDialect(Options options, std::string_view script, std::int64_t startedMs);

  /// Safe from any thread.
  Answer answer(const Question& question);

  /// Made-up but steady token numbers: one for every four bytes of a word, one for each mark. With `addSpecial` one more in front.
  static std::vector<int> tokens(std::string_view text, bool addSpecial);
  /// The conversation as a prompt, the begin token left out.
  static std::string applyTemplate(const JSONValue& body);

 private:
  Answer chat(const Question& question);

  Options options_;
  PracticeScript script_;
  std::int64_t startedMs_;
  std::atomic<std::int64_t> replies_{0};
};

}  // namespace halvo
