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
#include "AmbitudeCore/Gate/GateDecisionLog.h"
#include "AmbitudeCore/Review/RampSampleSelector.h"
#include "AmbitudeCore/Review/ReviewScore.h"
#include "AmbitudeCore/Review/ReviewSession.h"
#include "CaptureShared/EventLog/EventLogReader.h"
#include "CaptureShared/EventLog/IncrementalJSONLReader.h"
#include "CaptureShared/EventLog/LogTail.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/FFmpegResolver.h"
#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/TerminationSignals.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Labels/AnsweredMoments.h"
#include "CaptureShared/Labels/Clips/ClipFolder.h"
#include "CaptureShared/Labels/Clips/RampProxyEncoder.h"
#include "CaptureShared/Labels/LabelVocabulary.h"
#include "CaptureShared/Labels/LabelsSchema.h"
#include "CaptureShared/Recording/Location/FrameLocator.h"
#include "CaptureShared/Recording/VideoArchiveKeyStore.h"
#include "Platform/Linux/LinuxArchiveKeyBackend.h"
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

/// Clips of single moments, each gone when the next one is made.
class Clips {
 public:
  Clips()
      : environment_(processEnvironment()),
        folder_(environment_),
        backend_(LinuxArchiveKeyBackend::forAccount(environment_)),
        keys_(backend_) {}

  /// The clip's path and what it shows, or why there is none.
  std::string make(std::int64_t judgedInstantMs, const Calendar& calendar, const std::stop_token& stop) {
    std::error_code ignored;
    const auto file = folder_.path() / "moment.mp4";
    fs::remove(file, ignored);
    try {
      const auto plan = RampClipPlan::plan({.judgedInstantMs = judgedInstantMs});
      const auto keyOf = [this](std::optional<std::uint32_t> generation) { return keys_.keyForGeneration(generation); };
      RampProxyEncoder::encode(plan, file, {.ffmpeg = FFmpegResolver::resolve(environment_), .keyForGeneration = keyOf}, stop);
      // What lies before the first frame found is no gap in the clip: it begins later.
      return fmt::format("{} ({:.0f} s, of what was recorded from {} on; {:.0f} % gaps)", file.string(), plan.durationSeconds(),
                         calendar.hourMinute(plan.frames.front().sourceRealMs), 100 * plan.gapShare());
    } catch (const std::runtime_error& error) {
      throwIfStopped(stop);
      return std::string("none: ") + error.what();
    }
  }

 private:
  Environment environment_;
  ClipFolder folder_;
  LinuxArchiveKeyBackend backend_;
  VideoArchiveKeyStore keys_;
};

std::vector<ClassifierTick> recentTicks(const fs::path& log, std::int64_t fromMs) {
  try {
    auto reader = JSONLReaders::classifierTicks(log);
    reader.startAt(LogTail::offsetOf(fromMs, log, [](std::string_view line) {
      const auto tick = ClassifierTick::decode(line);
      return tick ? tick->atMs() : std::nullopt;
    }));
    return match(
        reader.read(), [](Reset<ClassifierTick>&& all) { return std::move(all.rows); },
        [](Appended<ClassifierTick>&& more) { return std::move(more.rows); });
  } catch (const std::system_error& error) {
    if (error.code() != std::errc::no_such_file_or_directory) throw;
    return {};
  }
}

RampSampleSelector::Request requestFor(const Draw& draw, const fs::path& root) {
  RampSampleSelector::Request request{.asOfMs = nowMs(), .alreadyLabeledMs = AnsweredMoments::rampLabeledTickMs(DataPaths::labelsDB(root))};
  request.limit = draw.limit;
  request.seed = draw.seed.value_or(static_cast<std::uint64_t>(request.asOfMs));
  if (!draw.fromLogs)
    request.isRenderable = [root](std::int64_t atMs) { return FrameLocator::locate({.atMs = atMs, .root = root}).has_value(); };
  return request;
}

/// Absent when there is no moment to ask about.
std::optional<ReviewSession> drawn(const Draw& draw, const fs::path& root, const Calendar& calendar) {
  namespace Phase = RampSampleSelector::RampLoadPhase;
  const auto mode = fromRawValue<SamplingMode>(draw.mode).value_or(SamplingMode::verdictBlind);
  auto request = requestFor(draw, root);
  RampSampleSelector::RampScreeningReporter reporter{.requested = draw.limit};
  if (::isatty(STDERR_FILENO)) {
    std::fprintf(stderr, "%s\n", Phase::text(Phase::ReadingLogs()).c_str());
    reporter.onProgress = [](const Phase::Phase& phase) { std::fprintf(stderr, "\r%s ", Phase::text(phase).c_str()); };
  }
  request.isRenderable = reporter.watching(request.isRenderable);
  const auto ticks = recentTicks(DataPaths::checkerLog(root), request.asOfMs - request.maxAgeMs);
  const auto decisions = GateDecisionLog::read(GateDecisionLog::defaultURL(root));
  request.ticks = ticks, request.decisions = decisions;
  std::optional<std::string> notice;
  std::vector<RampSampleSelector::Sample> samples;
  if (mode == SamplingMode::verdictBlind) {
    auto batch = RampSampleSelector::selectVerdictBlindBatch(request);
    samples = std::move(batch.samples), notice = batch.starvationNotice();
  } else {
    samples = RampSampleSelector::selectBatch(request);
  }
  if (reporter.onProgress) std::fputc('\n', stderr);
  if (samples.empty()) return std::nullopt;
  auto batch = ReviewBatch::make(std::move(samples), mode, request.seed, request.asOfMs);
  batch.notice = std::move(notice);
  return ReviewSession(std::move(batch), ReviewSession::Places::under(root), calendar);
}

std::string nameOf(Layer1Answer answer) {
  const auto hint = RampLabelSubmission::hint(answer);
  return LabelVocabulary::displayName(rawValue(answer)) + (hint ? " (" + std::string(*hint) + ")" : "");
}
std::string nameOf(GateLabel label) { return Text::replaceAll(std::string(rawValue(label)), "_", " "); }
std::string nameOf(GateGapLabelWriter::Label label) { return Text::replaceAll(std::string(rawValue(label)), "_", " "); }

std::string whenText(std::int64_t ms, const Calendar& calendar) {
  const auto at = calendar.fields(ms);
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}", at.year, at.month, at.day, at.hour, at.minute, at.second);
}

std::vector<ReviewSession::Layer2Answer> choicesFor(const RampSampleSelector::Layer2Question& question) {
  return match(
      question,
      [](const GateDecisionRecord& decision) {
        const auto labels = GateLabelWriter::choices(decision.decision);
        return std::vector<ReviewSession::Layer2Answer>(labels.begin(), labels.end());
      },
      [](const GateDecisionGap&) {
        using Label = GateGapLabelWriter::Label;
        return std::vector<ReviewSession::Layer2Answer>{Label::fineToBeQuiet, Label::shouldHaveSpoken};
      });
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
    print(fmt::format("\nmoment {} of {}: {}", progress.number, progress.total, whenText(moment.atMs, calendar_)));
    print("  you meant to: " + oneLine(moment.declaredTask.value_or("(nothing declared)")));
    print("  in front:     " + oneLine(moment.frontmostApp.value_or("(not known)")) +
          (moment.windowTitle ? ", " + oneLine(*moment.windowTitle) : ""));
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

  void showVerdict(const ReviewSession::Reveal& told) {
    print("\nThe verdict: " + oneLine(LabelVocabulary::displayNameForState(told.state)) +
          (told.confidence ? fmt::format(" ({:.0f} % sure)", 100 * *told.confidence) : "") +
          (told.reason ? ": " + oneLine(*told.reason) : ""));
    if (told.decision) {
      const auto& decision = *told.decision;
      const auto what = decision.decision == "check_in" ? "spoke" : decision.decision == "no_check_in" ? "stayed quiet" : "could not decide";
      const auto why = decision.summaryForCoach ? decision.summaryForCoach : decision.failureReason;
      print(fmt::format("The gate {} at {}{}", what, calendar_.hourMinute(decision.atMs), why && !why->empty() ? ": " + oneLine(*why) : ""));
    }
    if (!told.question) return;
    if (const auto* gap = std::get_if<GateDecisionGap>(&*told.question))
      print("The gate was not asked from " + calendar_.hourMinute(gap->fromMs) + " to " +
            (gap->isOpen ? std::string("when this was drawn") : calendar_.hourMinute(gap->toMs)));
  }

  bool second() {
    const auto told = *session_.reveal();
    showVerdict(told);
    const auto choices = told.question ? choicesFor(*told.question) : std::vector<ReviewSession::Layer2Answer>();
    if (!choices.empty()) print("Was that right?");
    for (std::size_t i = 0; i < choices.size(); ++i)
      print(fmt::format("  {}  {}", i + 1, match(choices[i], [](GateLabel label) { return nameOf(label); },
                                                 [](GateGapLabelWriter::Label label) { return nameOf(label); })));
    const auto line = lines_.next(choices.empty() ? "return goes on; r changes your answer, q leaves: "
                                                  : "a number, then a comment if you like; s goes on without, r changes the first answer, q leaves: ");
    if (!line || *line == "q") return false;
    if (*line == "r") return revise();
    const Typed typed(*line);
    if (const auto place = typed.place(choices.size())) keep([&] { session_.answerGate(choices[*place], typed.comment, nowMs()); });
    else if (*line == "s" || choices.empty()) keep([&] { session_.next(); });
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
  std::optional<std::int64_t> shownMs_;
};

std::string percent(const std::optional<double>& share) { return share ? fmt::format("{:.0f} %", 100 * *share) : "-"; }

void makeLabels(const fs::path& file) {
  SQLiteDB db(file, SQLiteDB::Role::owner);
  LabelsSchema::create(db);
}

}  // namespace

int review(const Draw& draw) {
  return withDataRoot([&] {
    const TerminationSignals signals;
    const auto root = DataPaths::dataRoot();
    const auto calendar = Calendar::local();
    makeLabels(DataPaths::labelsDB(root));
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
    makeLabels(DataPaths::labelsDB(root));
    std::vector<ClassifierTick> ticks;
    if (fs::exists(DataPaths::checkerLog(root))) ticks = ClassifierLogReader::read(DataPaths::checkerLog(root));
    const auto told = ReviewScore::score(LabelHistory::read(DataPaths::labelsDB(root)), ticks,
                                         everything ? ReviewScore::Evidence::everything : ReviewScore::Evidence::blindRandom);
    print(everything ? "all that was ever said, also after the verdict was seen: no estimate of how often it is right"
                     : "blind answers on random moments only");
    print(fmt::format("{:<14} {:>9} {:>9} {:>9} {:>9} {:>9}", "state", "verdicts", "truths", "agreed", "precision", "recall"));
    for (const auto& [state, of] : told.states)
      print(fmt::format("{:<14} {:>9} {:>9} {:>9} {:>9} {:>9}", oneLine(state), of.verdicts, of.truths, of.agreed, percent(of.precision()),
                        percent(of.recall())));
    print(fmt::format("agreed: {} of {}", told.agreed, told.scored));
    print(fmt::format("left out: {} where no state is the truth, {} without a verdict in the log, {} of other evidence; {} revision(s)",
                      told.noTruth, told.noVerdict, told.otherEvidence, told.revisionsPassed));
    if (!everything) print("rare states are drawn more often than they come, so recall and the total are of these moments, not of a day");
    return 0;
  });
}

}  // namespace halvo::ReviewCommands
