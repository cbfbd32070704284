#include "app/ReviewCommands.h"

#include <cstdio>
#include <filesystem>
#include <memory>
#include <system_error>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include "AmbitudeAppKit/Live/TerminalText.h"
#include "AmbitudeAppKit/Present/ReviewWords.h"
#include "AmbitudeCore/Review/ReviewDraw.h"
#include "AmbitudeCore/Review/ReviewScore.h"
#include "AmbitudeCore/Review/ReviewSession.h"
#include "CaptureShared/EventLog/EventLogReader.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/TerminationSignals.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Labels/Clips/MomentClips.h"
#include "app/ArchiveKeys.h"
#include "app/CommandOutput.h"

namespace halvo::ReviewCommands {

namespace {

namespace fs = std::filesystem;
using CommandOutput::fail;
using CommandOutput::print;
using CommandOutput::withDataRoot;
using RampLabelSubmission::Layer1Answer;
using RampSampleSelector::SamplingMode;
using TerminalText::oneLine;

std::int64_t nowMs() { return Clock::system().nowMs(); }

/// What is typed, line by line, as long as no signal comes.
class Lines {
 public:
  explicit Lines(std::stop_token stop) : stop_(std::move(stop)) {}

  /// Absent at the end of the input and when a signal came.
  std::optional<std::string> next(const std::string& prompt) {
    std::fputs(prompt.c_str(), stdout);
    std::fflush(stdout);
    while (true) {
      if (const auto end = pending_.find('\n'); end != std::string::npos) {
        auto line = Text::scrubbed(Text::trim(std::string_view(pending_).substr(0, end)));
        pending_.erase(0, end + 1);
        return line;
      }
      if (stop_.stop_requested()) return std::nullopt;
      pollfd input{STDIN_FILENO, POLLIN, 0};
      if (::poll(&input, 1, 100) <= 0) continue;
      char bytes[4096];
      const auto count = ::read(STDIN_FILENO, bytes, sizeof bytes);
      if (count <= 0) return std::nullopt;
      pending_.append(bytes, static_cast<std::size_t>(count));
    }
  }

 private:
  std::stop_token stop_;
  std::string pending_;
};

/// An answer's first word, and what was said behind it.
struct Typed {
  std::string word;
  std::optional<std::string> comment;

  explicit Typed(const std::string& line) : word(line.substr(0, line.find(' '))) {
    if (const auto rest = Text::trim(std::string_view(line).substr(word.size())); !rest.empty()) comment = std::string(rest);
  }
  /// Its place in a list that counts from 1.
  std::optional<std::size_t> place(std::size_t count) const {
    const auto number = Text::parseInteger(word);
    if (!number || *number < 1 || *number > static_cast<std::int64_t>(count)) return std::nullopt;
    return static_cast<std::size_t>(*number) - 1;
  }
};

/// The clips of this machine's recordings.
class Clips {
 public:
  /// The clip's path and what it shows, or why there is none.
  std::string make(std::int64_t judgedInstantMs, const Calendar& calendar, const std::stop_token& stop) {
    try {
      const auto clip = clips_.make(judgedInstantMs, stop);
      return fmt::format("{} ({:.0f} s, of what was recorded from {} on; {:.0f} % gaps)", clip.file.string(), clip.frameCount / clip.fps,
                         calendar.hourMinute(clip.fromMs), 100 * clip.gapShare);
    } catch (const std::runtime_error& error) {
      throwIfStopped(stop);
      return std::string("none: ") + error.what();
    }
  }

 private:
  MomentClips clips_{{.root = DataPaths::dataRoot(), .environment = processEnvironment(), .keyForGeneration = ArchiveKeys::ofThisAccount()}};
};

/// Absent when there is no moment to ask about.
std::optional<ReviewSession> drawn(const Draw& draw, const fs::path& root, const Calendar& calendar) {
  namespace Phase = RampSampleSelector::RampLoadPhase;
  ReviewDraw::Request request{.root = root,
                              .mode = fromRawValue<SamplingMode>(draw.mode).value_or(SamplingMode::verdictBlind),
                              .limit = draw.limit,
                              .seed = draw.seed,
                              .asOfMs = nowMs()};
  if (!draw.fromLogs) request.isRenderable = MomentClips::isRenderable(root);
  const bool isWatched = ::isatty(STDERR_FILENO);
  if (isWatched) request.onProgress = [](const Phase::Phase& phase) { std::fprintf(stderr, "\r\033[K%s", Phase::text(phase).c_str()); };
  return ReviewDraw::draw(request, calendar);
}

std::string nameOf(Layer1Answer answer) {
  const auto hint = RampLabelSubmission::hint(answer);
  return ReviewWords::name(answer) + (hint ? " (" + std::string(*hint) + ")" : "");
}

/// A session on a terminal.
class View {
 public:
  View(ReviewSession& session, Lines& lines, const Calendar& calendar, Clips* clips, std::stop_token stop)
      : session_(session), lines_(lines), calendar_(calendar), clips_(clips), stop_(std::move(stop)) {}

  int run() {
    if (session_.starvationNotice()) print(oneLine(*session_.starvationNotice()));
    while (!session_.isFinished())
      if (!(session_.reveal() ? second() : first())) {
        print("left; \"halvo review\" goes on from here");
        return 0;
      }
    const auto progress = session_.progress();
    print(fmt::format("done: {} answered, {} passed over", progress.answered, progress.skipped));
    return 0;
  }

 private:
  void showMoment() {
    const auto moment = *session_.blind();
    if (std::exchange(shownMs_, moment.atMs) == moment.atMs) return;  // a clip takes a while to make
    const auto progress = session_.progress();
    print(fmt::format("\nmoment {} of {}: {}", progress.number, progress.total, ReviewWords::when(moment.atMs, calendar_)));
    print("  you meant to: " + oneLine(ReviewWords::declared(moment)));
    print("  in front:     " + oneLine(ReviewWords::inFront(moment)));
    if (clips_) print("  clip:         " + oneLine(clips_->make(moment.frameMs, calendar_, stop_)));
  }

  void showAnswers() {
    int number = 0;
    for (const auto& [answer, text] : RawValues<Layer1Answer>::table) print(fmt::format("  {}  {}", ++number, nameOf(answer)));
  }

  /// Runs what keeps an answer; a failure is told, and the question stays.
  template <class F>
  void keep(F&& body) {
    try {
      body();
      if (session_.placeFailure()) fail("the place in this review could not be kept; what you answered is: " + oneLine(*session_.placeFailure()));
    } catch (const std::runtime_error& error) {
      fail("your answer could NOT be kept: " + oneLine(error.what()) + ". Give it again.");
    }
  }

  static std::optional<Layer1Answer> answerOf(const Typed& typed) {
    const auto& table = RawValues<Layer1Answer>::table;
    const auto place = typed.place(table.size());
    return place ? std::optional(table[*place].first) : std::nullopt;
  }

  /// The blind question. False: the person leaves.
  bool first() {
    showMoment();
    print("What was really going on?");
    showAnswers();
    const auto line = lines_.next("a number, then a comment if you like; s passes over, q leaves: ");
    if (!line || *line == "q") return false;
    const Typed typed(*line);
    if (const auto given = answerOf(typed)) keep([&] { session_.answer(*given, typed.comment, nowMs()); });
    else if (*line == "s") keep([&] { session_.next(); });
    return true;
  }

  /// Asks by number; false: the person leaves.
  template <class Choices, class Keep>
  bool choose(const char* question, const Choices& choices, Keep&& answered) {
    print(question);
    for (std::size_t i = 0; i < choices.size(); ++i) print(fmt::format("  {}  {}", i + 1, ReviewWords::name(choices[i])));
    const auto line = lines_.next("a number, then a comment if you like; s goes on without, r changes the first answer, q leaves: ");
    if (!line || *line == "q") return false;
    if (*line == "r") return revise();
    const Typed typed(*line);
    if (const auto place = typed.place(choices.size())) keep([&] { answered(choices[*place], typed.comment); });
    else if (*line == "s") keep([&] { answered(std::nullopt, std::nullopt); });
    return true;
  }

  bool second() {
    const auto told = *session_.reveal();
    const auto atMs = session_.blind()->atMs;
    using Comment = std::optional<std::string>;
    if (std::exchange(revealedMs_, atMs) != atMs) {
      print("\nThe verdict: " + oneLine(ReviewWords::verdict(told)));
      if (const auto gate = ReviewWords::gate(told, calendar_); !gate.empty()) print(oneLine(gate));
    }
    if (gradedMs_ != atMs && told.reason && !Text::isBlank(*told.reason))
      return choose("Was the reason given for the verdict right?", ReviewWords::judgements(),
                    [&](const std::optional<ReviewWords::Judgement>& given, const Comment&) {
                      if (given) session_.gradeReason(*given, nowMs());
                      gradedMs_ = atMs;
                    });
    const auto choices = told.question ? ReviewWords::choices(*told.question) : std::vector<ReviewWords::Layer2Answer>();
    if (!choices.empty())
      return choose("Was the gate right?", choices, [&](const std::optional<ReviewWords::Layer2Answer>& given, const Comment& comment) {
        if (given) session_.answerGate(*given, comment, nowMs());
        else session_.next();
      });
    const auto line = lines_.next("return goes on; r changes your answer, q leaves: ");
    if (!line || *line == "q") return false;
    if (*line == "r") return revise();
    keep([&] { session_.next(); });
    return true;
  }

  bool revise() {
    showAnswers();
    const auto line = lines_.next("the other answer, which won't count as a blind one: ");
    if (!line) return false;
    const Typed typed(*line);
    if (const auto given = answerOf(typed)) keep([&] { session_.revise(*given, typed.comment, nowMs()); });
    return true;
  }

  ReviewSession& session_;
  Lines& lines_;
  const Calendar& calendar_;
  Clips* clips_;
  std::stop_token stop_;
  std::optional<std::int64_t> shownMs_, revealedMs_, gradedMs_;  ///< of the moments that were shown, revealed, and had their reason graded
};

}  // namespace

int review(const Draw& draw) {
  return withDataRoot([&] {
    const TerminationSignals signals;
    const auto root = DataPaths::dataRoot();
    const auto calendar = Calendar::local();
    ReviewDraw::makeLabels(root);
    std::optional<ReviewSession> session;
    try {
      if (!draw.isNew) session = ReviewSession::resume(ReviewSession::Places::under(root), calendar);
    } catch (const ReviewSession::DamagedBatch& error) {
      return fail(oneLine(error.what()) + "; \"halvo review --new\" draws another in its place");
    }
    if (session) print(fmt::format("going on with the review that you left (seed {}); --new draws another", session->seed()));
    else session = drawn(draw, root, calendar);
    if (!session) {
      print(draw.fromLogs ? "there is no moment of the last two days to ask about"
                          : "there is no moment of the last two days that footage can be shown of; --from-logs asks without it");
      return 0;
    }
    Lines lines(signals.token());
    const auto clips = draw.fromLogs ? nullptr : std::make_unique<Clips>();
    try {
      return View(*session, lines, calendar, clips.get(), signals.token()).run();
    } catch (const Cancelled&) {
      print("left; \"halvo review\" goes on from here");
      return 0;
    }
  });
}

int score(bool everything) {
  return withDataRoot([&] {
    const auto root = DataPaths::dataRoot();
    ReviewDraw::makeLabels(root);
    std::vector<ClassifierTick> ticks;
    if (fs::exists(DataPaths::checkerLog(root))) ticks = ClassifierLogReader::read(DataPaths::checkerLog(root));
    const auto evidence = everything ? ReviewScore::Evidence::everything : ReviewScore::Evidence::blindRandom;
    const auto told = ReviewWords::of(ReviewScore::score(LabelHistory::read(DataPaths::labelsDB(root)), ticks, evidence), evidence);
    print(everything ? "all that was ever said, also after the verdict was seen: no estimate of how often it is right"
                     : "blind answers on random moments only");
    const auto row = [](const auto& cells) {
      print(fmt::format("{:<20} {:>9} {:>9} {:>9} {:>9} {:>9}", cells[0], cells[1], cells[2], cells[3], cells[4], cells[5]));
    };
    row(ReviewWords::Score::headers());
    for (auto cells : told.rows) cells[0] = oneLine(cells[0]), row(cells);
    for (const auto& line : told.lines) print(line);
    return 0;
  });
}

}  // namespace halvo::ReviewCommands
