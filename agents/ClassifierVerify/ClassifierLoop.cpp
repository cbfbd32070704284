#include "agents/ClassifierVerify/ClassifierLoop.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

#include "AmbitudeCore/Backends/LocalInferenceWire.h"
#include "AmbitudeCore/Backends/ModelBackendError.h"
#include "AmbitudeCore/Classifier/ClassifierDescribeLog.h"
#include "AmbitudeCore/Classifier/ClassifierModel.h"
#include "AmbitudeCore/Classifier/ClassifierPowerPolicy.h"
#include "AmbitudeCore/Classifier/EstimateExtractor.h"
#include "AmbitudeCore/Classifier/ModelReply.h"
#include "AmbitudeCore/Folds/CoachPreferences.h"
#include "AmbitudeCore/Folds/UserStandingInstructionsRendering.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/EventLog/EventLogReader.h"
#include "CaptureShared/EventLog/JSONLAppend.h"
#include "CaptureShared/Foundation/Match.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Intention/IntentionWriter.h"
#include "CaptureShared/Signals/SignalsNotes.h"
#include "CaptureShared/Signals/SignalsStaleness.h"

namespace halvo {
namespace {

constexpr int eventBytesPerLine = 400;  ///< only sizes a list

bool isDeclaration(const EventLogEvent& event) {
  return event.type == IntentionWriter::declaredType || event.type == IntentionWriter::clearedType;
}

SignalsStaleness::Pause pauseOf(const RecordingControls& controls, std::int64_t nowMs) {
  if (controls.isPaused(nowMs)) return SignalsStaleness::Active{controls.pausedAtMs};
  return SignalsStaleness::None{};
}

}  // namespace

struct ClassifierLoop::Files {
  explicit Files(std::filesystem::path dataRoot) : root(std::move(dataRoot)) {}
  std::filesystem::path root;
  std::filesystem::path signals = DataPaths::signalsDB(root), cadence = DataPaths::classifierCadence(root),
                        ticks = DataPaths::checkerLog(root), events = DataPaths::events(root),
                        staleNote = SignalsStaleNoteStore::url(root), descriptions = ClassifierDescribeLog::url(root);
};

/// What a pass sees before it decides.
struct ClassifierLoop::Look {
  std::optional<std::string> app, bundleId, title;
  bool away = false;
  ClassifierCadence::Episode episode;
};

ClassifierLoop::ClassifierLoop(World world)
    : world_(std::move(world)),
      mainsConfig_(ClassifierPowerPolicy::effectiveConfig(false, world_.environment)),
      batteryConfig_(ClassifierPowerPolicy::effectiveConfig(true, world_.environment)),
      config_(mainsConfig_),
      endpoint_(LocalInferenceWire::chatCompletionsURL(world_.inferenceBaseURL)),
      model_(ClassifierModel::resolved(world_.environment)),
      denylist_(Denylist::fromEnvironment(world_.environment)),
      integrity_(world_.integritySubject(model_), world_.inferenceBaseURL, world_.transport,
                 [this](const std::string& line) { say("note", line); }),
      reader_({.probes = world_.probes,
               .screen = world_.screen,
               .recognizer = world_.recognizer,
               .transport = world_.transport,
               .nowMs = world_.clock.nowMs,
               .log = [this](const std::string& line) { say("window", line); }},
              denylist_) {}

double ClassifierLoop::loopSec(const Environment& environment) {
  const auto text = value(environment, "AMBITCHECK_LOOP_SEC");
  if (!text) return defaultLoopSec;
  const auto trimmed = Text::trim(*text);
  double seconds = 0;
  const auto [end, error] = std::from_chars(trimmed.data(), trimmed.data() + trimmed.size(), seconds);
  const bool isNumber = error == std::errc() && end == trimmed.data() + trimmed.size();
  return isNumber && seconds >= 0.2 && seconds <= 60 ? seconds : defaultLoopSec;
}

void ClassifierLoop::run(const std::stop_token& stop) {
  const double waitSec = loopSec(world_.environment);
  world_.log(fmt::format("classifier started: model {}, a look every {:g} s, judgments {} to {} s apart", model_, waitSec,
                         mainsConfig_.floorSec, mainsConfig_.ceilingSec));
  while (!stop.stop_requested()) {
    try {
      pass(stop);
      settle("pass");
    } catch (const Cancelled&) {
      break;
    } catch (const std::exception& error) {
      say("pass", fmt::format("pass failed: {}", describeError(error)));
    }
    world_.clock.wait(waitSec, stop);
  }
  world_.log("classifier stopped");
}

void ClassifierLoop::pass(const std::stop_token& stop) {
  throwIfStopped(stop);
  const auto nowMs = world_.clock.nowMs();
  const auto root = world_.dataRoot();
  if (!root) return say("root", world_.dataRootUnavailableReason());
  settle("root");
  const Files files(*root);
  const auto last = ClassifierCadence::read(files.cadence);
  if (isPausedForPower(files, last, nowMs)) return;

  std::optional<SignalsReader> signals;
  try {
    signals.emplace(files.signals);
    if (isStale(files, *signals, last, nowMs)) return;
    const auto declared = declaration(files, *signals, nowMs);
    const auto seen = look(*signals, declared, nowMs);
    const ClassifierCadence::Moment moment{.nowMs = nowMs,
                                           .last = last,
                                           .frontmostApp = seen.app,
                                           .windowTitle = seen.title,
                                           .away = seen.away,
                                           .episode = seen.episode};
    match(
        ClassifierCadence::decide(moment, config_),
        [&](const ClassifierCadence::Skip&) { writeCadence(files, ClassifierCadence::heartbeat(*last, nowMs)); },
        [&](const ClassifierCadence::Judge&) {
          if (nowMs >= restUntilMs_) judge(files, *signals, declared, seen, moment, stop);
        });
    settle("signals");
  } catch (const SignalsReaderError& error) {
    say("signals", fmt::format("signals.sqlite can't be read ({}) — not judged", error.what()));
  }
}

bool ClassifierLoop::isPausedForPower(const Files& files, const std::optional<ClassifierCadence::State>& last, std::int64_t nowMs) {
  config_ = mainsConfig_;
  if (!ClassifierPowerPolicy::needsLiveReading(world_.environment)) return false;
  const auto snapshot = world_.power.snapshot();
  if (ClassifierPowerPolicy::mustSkip(snapshot, world_.environment)) {
    say("power", std::string(ClassifierPowerPolicy::pauseReason));
    writeCadence(files, ClassifierCadence::heartbeatPausedForPower(
                            last.value_or(ClassifierCadence::State::beforeFirstJudgment(nowMs)), nowMs));
    return true;
  }
  settle("power");
  if (ClassifierPowerPolicy::isOnBattery(snapshot)) config_ = batteryConfig_;
  return false;
}

bool ClassifierLoop::isStale(const Files& files, const SignalsReader& signals, const std::optional<ClassifierCadence::State>& last,
                             std::int64_t nowMs) {
  const auto tick = signals.latestTick();
  const auto wait = [&] {
    writeCadence(files, ClassifierCadence::heartbeat(last.value_or(ClassifierCadence::State::beforeFirstJudgment(nowMs)), nowMs));
    return true;
  };
  return match(
      SignalsStaleness::decide({.pause = pauseOf(controls_.look(files.root), nowMs),
                                .latestTickMs = tick ? std::optional(tick->tsMs) : std::nullopt,
                                .nowMs = nowMs,
                                .classifierLastRanAtMs = last ? std::optional(last->lastRanAtMs) : std::nullopt,
                                .regimeGapSec = static_cast<int>(config_.regimeGapSec)}),
      [&](const SignalsStaleness::Fresh&) {
        // A note of an earlier stop is over with the first new row.
        if (said_.erase("stale") || std::filesystem::exists(files.staleNote)) SignalsStaleNoteStore::clear(files.staleNote);
        return false;
      },
      [&](const SignalsStaleness::NotChecked&) {
        say("stale", "no rows in signals.sqlite yet — not judged");
        return wait();
      },
      [&](const SignalsStaleness::StaleConfirmed& stale) {
        if (!said_.contains("stale")) say("stale", SignalsStaleness::reason(stale.gapMs, stale.lastGoodTickAtMs));
        wait();
        SignalsStaleNoteStore::write({.lastGoodTickAtMs = stale.lastGoodTickAtMs, .updatedAtMs = nowMs}, files.staleNote);
        return true;
      },
      [&](const SignalsStaleness::PredatesPause& paused) {
        if (!said_.contains("stale"))
          say("stale", SignalsStaleness::reasonPredatesPause(paused.lastTickAtMs, paused.pauseStartedAtMs, nowMs));
        return wait();
      },
      // Just awake or just started: the rows are of another time, and it is too early to say that the sampler stopped.
      [&](const SignalsStaleness::StaleButUntrustworthy&) { return wait(); });
}

ClassifierService::Declaration ClassifierLoop::declaration(const Files& files, const SignalsReader& signals, std::int64_t nowMs) {
  if (!events_ || events_->url() != files.events) {
    newestDeclaration_.reset();
    events_.emplace(
        files.events,
        [](std::string_view line) -> std::optional<EventLogEvent> {
          if (line.find("\"task_") == std::string_view::npos) return std::nullopt;
          auto event = EventLogReader::decode(line);
          return event && isDeclaration(*event) ? std::move(event) : std::nullopt;
        },
        eventBytesPerLine);
  }
  // The last row is the one in force, whatever its clock said: it is what the person did last.
  const auto keepNewest = [&](const std::vector<EventLogEvent>& rows) {
    if (!rows.empty()) newestDeclaration_ = rows.back();
  };
  try {
    match(
        events_->read(),
        [&](const Reset<EventLogEvent>& all) {
          newestDeclaration_.reset();
          keepNewest(all.rows);
        },
        [&](const Appended<EventLogEvent>& more) { keepNewest(more.rows); });
    settle("events");
  } catch (const std::system_error& error) {
    newestDeclaration_.reset();
    events_->invalidate();
    if (error.code() != std::errc::no_such_file_or_directory) say("events", fmt::format("the event log can't be read: {}", error.what()));
  }
  ClassifierService::DeclarationSources sources{.signals = signals, .asOfMs = nowMs, .calendar = world_.calendar};
  if (newestDeclaration_) {
    sources.jsonlEvents = {&*newestDeclaration_, 1};
    sources.asOfMs = std::max(nowMs, newestDeclaration_->tsMs);
  } else {
    sources.taskFileBody = world_.taskFileBody();
  }
  return ClassifierService::declaration(sources);
}

ClassifierLoop::Look ClassifierLoop::look(const SignalsReader& signals, const ClassifierService::Declaration& declared,
                                          std::int64_t nowMs) {
  Look seen{.app = {},
            .bundleId = {},
            .title = {},
            .episode = ClassifierService::episode(declared, ClassifierService::knownEstimateMinutes(declared, signals), nowMs)};
  const auto tick = signals.latestTick(nowMs);
  if (!tick) return seen;
  seen.app = tick->frontmostApp;
  seen.bundleId = signals.frontmostBundleId(tick->tsMs);
  if (seen.app)
    if (const auto window = signals.contentWindow(tick->tsMs, *seen.app)) seen.title = window->title;
  seen.away = ClassifierService::isAway({.frontmostApp = tick->frontmostApp, .idleAnySec = tick->idleAnySec});
  return seen;
}

void ClassifierLoop::judge(const Files& files, const SignalsReader& signals, const ClassifierService::Declaration& declared,
                           const Look& look, const ClassifierCadence::Moment& moment, const std::stop_token& stop) {
  // Nothing is asked of a server, and no picture taken for it, before it is known to be the right one.
  std::optional<bool> trusted;
  const auto isTrusted = [&] {
    if (!trusted) trusted = isServerTrusted(moment.nowMs, stop);
    return *trusted;
  };
  const auto state = ClassifierService::buildState(
      {.signals = signals, .asOfMs = moment.nowMs, .declaration = declared, .estimate = [&](const std::string& task) {
         return isTrusted() ? askForEstimate(files, task, moment.nowMs, stop) : std::nullopt;
       }});
  ClassifierService::JudgeRequest request{.state = state, .config = {.endpoint = endpoint_, .model = model_}};
  std::optional<std::int64_t> screenshotAtMs;
  if (!ClassifierService::shortcut(state)) {
    if (!isTrusted()) return;
    const auto content = readWindow(signals, look, moment.nowMs, stop);
    request.contentWithheldForDenylist = content.withheld;
    screenshotAtMs = content.screenshotAtMs;
    if (content.ocrText || content.description)
      request.windowContent =
          ClassifierPrompt::redactedWindowContent(content.ocrText.value_or(""), content.description.value_or(""));
    if (content.description) {
      try {
        ClassifierDescribeLog::append(*content.screenshotAtMs, *content.description, files.descriptions);
      } catch (const JSONLAppendError& error) {
        say("descriptions", fmt::format("description not kept: {}", error.what()));
      }
    }
    request.userInstructions = userInstructions(files);
  }

  try {
    const auto outcome = ClassifierService::judge(request, world_.transport, stop);
    if (outcome.calledModel) {
      if (modelIsDown_) world_.log("the local model answers again");
      modelIsDown_ = false;
      settle("model");
    }
    for (const auto& line : outcome.privacyLogLines()) world_.log(line);
    appendRow(files, ClassifierService::loggedTick({.atMs = world_.clock.nowMs(),
                                                    .outcome = outcome,
                                                    .state = state,
                                                    .screenshotAtMs = screenshotAtMs,
                                                    .model = model_,
                                                    .calendar = world_.calendar}));
    writeCadence(files, ClassifierCadence::advanced(moment, outcome.state, config_));
    world_.log(fmt::format("judged {} ({:.2f})", outcome.state, outcome.judgment.confidence));
  } catch (const ModelBackendError& error) {
    modelIsDown_ = true;
    say("model", fmt::format("the local model gave no judgment ({}) — trying again at the next pass",
                             ModelReply::excerpt(describeError(error))));
  } catch (const JSONLAppendError& error) {
    // The verdict is lost with its row; another is not asked for at once, since the disk will hardly have room by then.
    restUntilMs_ = moment.nowMs + config_.floorSec * 1000;
    say("ticks", fmt::format("checker-log.jsonl not written: {}", error.what()));
  }
}

WindowContentReader::Content ClassifierLoop::readWindow(const SignalsReader& signals, const Look& look, std::int64_t nowMs,
                                                        const std::stop_token& stop) {
  if (const auto withheld = LiveWindowGuard::byName(denylist_, look.app, look.bundleId)) return {.withheld = withheld};
  const auto bounds = WindowContentReader::frontmostContentBounds(signals, nowMs);
  if (!bounds) return {};
  auto content = reader_.read({.bounds = *bounds, .expectedApp = look.app}, {.describeModel = model_, .endpoint = endpoint_}, stop);
  if (content.ocrText && content.description) settle("window");
  return content;
}

std::optional<double> ClassifierLoop::askForEstimate(const Files& files, const std::string& declaredTask, std::int64_t nowMs,
                                                     const std::stop_token& stop) {
  try {
    const auto estimate = EstimateExtractor::extract(
        declaredTask, files.signals, {.endpoint = endpoint_, .model = model_}, world_.transport, nowMs,
        [this](const std::string& line) { say("estimate", line); }, stop);
    return estimate.minutes;
  } catch (const EstimateExtractorError& error) {
    say("estimate", fmt::format("estimate parse failed (treating as no estimate): {}", error.what()));
    return std::nullopt;
  }
}

std::optional<std::string> ClassifierLoop::userInstructions(const Files& files) {
  try {
    const auto note = CoachPreferencesStore::read(files.root).classifierInstructions;
    settle("preferences");
    return UserStandingInstructionsRendering::forClassifier(note);
  } catch (const std::exception& error) {
    say("preferences", fmt::format("judging without the user's note: {}", error.what()));
    return std::nullopt;
  }
}

void ClassifierLoop::appendRow(const Files& files, const ClassifierTick& tick) {
  JSONLAppend::append(tick.encode(), files.ticks);
  settle("ticks");
}

bool ClassifierLoop::isServerTrusted(std::int64_t nowMs, const std::stop_token& stop) {
  const auto decision = integrity_.decide(nowMs, stop);
  for (const auto& warning : decision.warnings) world_.log(warning);
  if (decision.refusal) {
    modelIsDown_ = true;
    say("integrity", *decision.refusal);
    return false;
  }
  settle("integrity");
  return true;
}

void ClassifierLoop::writeCadence(const Files& files, const ClassifierCadence::State& state) {
  try {
    ClassifierCadence::write(state, files.cadence);
    settle("cadence");
  } catch (const std::system_error& error) {
    say("cadence", fmt::format("classifier-cadence.json not written: {}", error.what()));
  }
}

void ClassifierLoop::say(const std::string& topic, const std::string& line) {
  // Lines that differ in figures only (bytes that were missing, milliseconds that passed) tell of one trouble, and a topic may have two
  // troubles that take turns. A server that makes up a new one each time is not told of for ever.
  constexpr std::size_t mostTroubles = 8;
  auto shape = line;
  std::erase_if(shape, [](char c) { return c >= '0' && c <= '9'; });
  auto& told = said_[topic];
  if (told.size() >= mostTroubles || !told.insert(std::move(shape)).second) return;
  world_.log(line);
}

}  // namespace halvo
