#include "Platform/Linux/TesseractRecognizer.h"

#include <chrono>
#include <system_error>

#include <fmt/format.h>

#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Spawn.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo {

TextRecognizer::Outcome TesseractRecognizer::recognize(std::string_view png, double timeoutSec, const std::stop_token& stop) {
  throwIfStopped(stop);
  using Steady = std::chrono::steady_clock;
  const auto start = Steady::now();
  // One thread: its four make a page hardly sooner and take the desktop's other cores while they last.
  std::optional<Spawn::Output> output;
  try {
    output = Spawn::capture("env", {"OMP_THREAD_LIMIT=1", program_, "stdin", "stdout", "-l", "eng", "--dpi", "96"}, png, timeoutSec, stop);
  } catch (const std::system_error& error) {
    throw TextRecognitionError(fmt::format("{} could not be started: {}", program_, error.code().message()));
  }
  if (!output) {
    throwIfStopped(stop);
    if (std::chrono::duration<double>(Steady::now() - start).count() >= timeoutSec) return TimedOut{};
    throw TextRecognitionError(fmt::format("{} wrote more than a screen can hold", program_));
  }
  constexpr int notFound = 127;  // how `env` says that there is no such program
  if (output->exitStatus == notFound) throw TextRecognitionError(fmt::format("{} is not installed", program_));
  if (output->exitStatus != 0) throw TextRecognitionError(fmt::format("{} failed with status {}", program_, output->exitStatus));
  return Recognized{Text::scrubbed(output->standardOutput)};
}

}  // namespace halvo
