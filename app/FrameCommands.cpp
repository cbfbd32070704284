#include "app/FrameCommands.h"

#include <algorithm>
#include <system_error>
#include <vector>

#include <fmt/format.h>

#include "AmbitudeAppKit/Live/TerminalText.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/FFmpegResolver.h"
#include "CaptureShared/Foundation/TerminationSignals.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/UUID.h"
#include "CaptureShared/Recording/FFmpegRun.h"
#include "CaptureShared/Recording/Location/FrameLocator.h"
#include "CaptureShared/Recording/RecordingInput.h"
#include "app/ArchiveKeys.h"
#include "app/CommandOutput.h"

namespace halvo::FrameCommands {

namespace fs = std::filesystem;

namespace {

using CommandOutput::fail;
using CommandOutput::print;

/// The whole numbers between separators; absent when anything else is there.
std::optional<std::vector<int>> numbers(std::string_view text, char separator) {
  std::vector<int> found;
  for (const auto part : Text::split(text, separator)) {
    if (part.empty() || part.size() > 4 || !std::ranges::all_of(part, [](char c) { return c >= '0' && c <= '9'; })) return std::nullopt;
    found.push_back(static_cast<int>(*Text::parseInteger(part)));
  }
  return found;
}

/// ffmpeg over a recording, sealed or plain, with `before` in front of the input and `after` behind it, into a new file that appears under
/// its name only when it is whole. No other copy in the clear is made. Throws `std::exception`.
struct Conversion {
  fs::path recording, output;
  std::vector<std::string> before, after;
  bool needsAll = false;  ///< of the recording: one that is damaged further on won't do either

  void run() const {
    const auto environment = processEnvironment();
    const auto ffmpeg = FFmpegResolver::resolve(environment);
    const auto scrap = output.parent_path() / (".halvo-" + newUUID() + output.extension().string());
    struct Gone {
      const fs::path& file;
      ~Gone() {
        std::error_code ignored;
        fs::remove(file, ignored);
      }
    } const gone{scrap};

    RecordingInput input(recording, ArchiveKeys::ofThisAccount());
    std::vector<std::string> words{"-nostdin", "-v", "error"};
    words.insert(words.end(), before.begin(), before.end());
    for (auto& word : input.words()) words.push_back(std::move(word));
    words.insert(words.end(), after.begin(), after.end());
    words.insert(words.end(), {"-y", scrap.string()});
    const TerminationSignals signals;  // nothing in the clear stays behind when it is interrupted
    const auto outcome = FFmpegRun::run(ffmpeg, words, input.feed(), signals.token());
    if (needsAll && outcome.feedFailure) throw std::runtime_error(*outcome.feedFailure);
    std::error_code error;
    if (outcome.exitStatus != 0 || fs::file_size(scrap, error) == 0 || error)
      throw std::runtime_error(Text::isBlank(outcome.standardError) ? outcome.feedFailure.value_or("ffmpeg found no frame there")
                                                                    : std::string(Text::trim(outcome.standardError)));
    fs::rename(scrap, output);
  }
};

std::string nameOf(std::int64_t ms, const Calendar& calendar, const char* extension) {
  const auto at = calendar.fields(ms);
  return fmt::format("halvo-{:04}-{:02}-{:02}T{:02}.{:02}.{:02}.{}", at.year, at.month, at.day, at.hour, at.minute, at.second, extension);
}

template <class F>
int withLocated(const Request& request, F&& command) {
  return CommandOutput::withDataRoot([&] {
    const auto calendar = Calendar::local();
    const auto atMs = moment(request.time, Clock::system().nowMs(), calendar);
    if (!atMs) return fail("say a time as in \"14:05\", \"yesterday 14:05\" or \"2026-11-25 14:05:30\"");
    const auto result = FrameLocator::locateDetailed({.atMs = *atMs, .display = request.display});
    if (std::holds_alternative<FrameLocator::UnsupportedEra>(result)) return fail("that recording is too old for its frames to be found");
    const auto* located = std::get_if<FrameLocator::Located>(&result);
    if (!located) return fail("nothing was recorded near " + TerminalText::oneLine(request.time));
    return command(*located, calendar);
  });
}

}  // namespace

std::optional<std::int64_t> moment(std::string_view text, std::int64_t nowMs, const Calendar& calendar) {
  text = Text::trim(text);
  auto day = calendar.fields(nowMs);
  if (const auto blank = text.find(' '); blank != std::string_view::npos) {
    const auto word = text.substr(0, blank);
    if (word == "yesterday") {
      day = calendar.fields(calendar.instant(day.year, day.month, day.day, 12) - 24 * 3'600'000);
    } else if (word != "today") {
      const auto date = numbers(word, '-');
      if (!date || date->size() != 3) return std::nullopt;
      day.year = (*date)[0], day.month = (*date)[1], day.day = (*date)[2];
      if (day.month < 1 || day.month > 12 || day.day < 1 || day.day > 31) return std::nullopt;
    }
    text = Text::trim(text.substr(blank));
  }
  const auto time = numbers(text, ':');
  if (!time || time->size() < 2 || time->size() > 3) return std::nullopt;
  const int second = time->size() == 3 ? (*time)[2] : 0;
  if ((*time)[0] > 23 || (*time)[1] > 59 || second > 59) return std::nullopt;
  const auto ms = calendar.instant(day.year, day.month, day.day, (*time)[0], (*time)[1]);
  if (calendar.fields(ms).day != day.day) return std::nullopt;  // February 31st
  return ms + second * 1000;
}

int frame(const Request& request) {
  return withLocated(request, [&](const FrameLocator::Located& located, const Calendar& calendar) {
    const auto output = fs::absolute(request.output.value_or(nameOf(located.frameRealMs, calendar, "png")));
    // Half a frame early: the first frame from there on is the one.
    const auto fromSec = std::max(0.0, located.seekSec() - 0.5 / FrameLocator::fps);
    Conversion{.recording = located.file, .output = output, .before = {"-ss", fmt::format("{:.3f}", fromSec)},
               .after = {"-frames:v", "1", "-update", "1", "-c:v", "png", "-f", "image2"}}
        .run();
    print(TerminalText::oneLine(output.string()));
    return 0;
  });
}

int play(const Request& request) {
  return withLocated(request, [&](const FrameLocator::Located& located, const Calendar& calendar) {
    const auto output = fs::absolute(request.output.value_or(nameOf(located.frameRealMs, calendar, "mp4")));
    Conversion{.recording = located.file, .output = output, .before = {},
               .after = {"-c", "copy", "-movflags", "+faststart", "-f", "mp4"}, .needsAll = true}
        .run();
    print(TerminalText::oneLine(output.string()));
    const auto sec = static_cast<std::int64_t>(located.seekSec());
    print(fmt::format("the moment is at {}:{:02}", sec / 60, sec % 60));
    return 0;
  });
}

}  // namespace halvo::FrameCommands
