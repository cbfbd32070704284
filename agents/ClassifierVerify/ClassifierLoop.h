#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stop_token>
#include <string>

#include "AmbitudeCore/Classifier/ClassifierCadence.h"
#include "AmbitudeCore/Classifier/ClassifierService.h"
#include "AmbitudeCore/Classifier/ModelIntegrityCheck.h"
#include "AmbitudeCore/Classifier/WindowContentReader.h"
#include "CaptureShared/EventLog/IncrementalJSONLReader.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Environment.h"
#include "CaptureShared/Foundation/Log.h"
#include "CaptureShared/Net/HTTPTransport.h"
#include "CaptureShared/Recording/Supervision/RecordingControlsWatch.h"
#include "Platform/Desktop/DesktopProbes.h"
#include "Platform/Power/PowerSource.h"
#include "Platform/Screen/ScreenCapture.h"
#include "Platform/Text/TextRecognizer.h"

namespace halvo {

/// The classifier's agent: every few seconds it asks whether a judgment is due, and if so judges this moment and appends the row.
class ClassifierLoop {
 public:
  /// Everything it touches. The references must outlive the loop.
  struct World {
    Clock clock;
    Calendar calendar;
    Environment environment;  ///< read once; a change takes effect at the next start
    DesktopProbes& probes;
    ScreenCapture& screen;
    std::shared_ptr<TextRecognizer> recognizer;
    PowerSource& power;
    HTTPTransport& transport;
    std::string inferenceBaseURL;                                    ///< of the local server
    std::function<ModelIntegrityCheck::Subject(std::string model)> integritySubject;
    std::function<std::optional<std::filesystem::path>()> dataRoot;  ///< absent while it is not available
    std::function<std::string()> dataRootUnavailableReason;
    std::function<std::optional<std::string>()> taskFileBody;        ///< the declaration when the event log has none
    LogSink log;
  };

  explicit ClassifierLoop(World world);

  /// Passes until stopped, also inside a model call. A failed pass is logged and the next one comes all the same. Never throws.
  void run(const std::stop_token& stop);
  /// One pass. Throws `Cancelled`.
  void pass(const std::stop_token& stop);

  static constexpr double defaultLoopSec = 5;
  /// Seconds between passes: AMBITCHECK_LOOP_SEC when it is a number from 0.2 to 60, else `defaultLoopSec`. The key is for demonstrations
  /// and tests; it is read from the environment only, never from config.json.
  static double loopSec(const Environment& environment);

 private:
  struct Files;
  struct Look;

  bool isPausedForPower(const Files& files, const std::optional<ClassifierCadence::State>& last, std::int64_t nowMs);
  bool isStale(const Files& files, const SignalsReader& signals, const std::optional<ClassifierCadence::State>& last, std::int64_t nowMs);
  ClassifierService::Declaration declaration(const Files& files, const SignalsReader& signals, std::int64_t nowMs);
  Look look(const SignalsReader& signals, const ClassifierService::Declaration& declared, std::int64_t nowMs);
  void judge(const Files& files, const SignalsReader& signals, const ClassifierService::Declaration& declared, const Look& look,
             const ClassifierCadence::Moment& moment, const std::stop_token& stop);
  WindowContentReader::Content readWindow(const SignalsReader& signals, const Look& look, std::int64_t nowMs, const std::stop_token& stop);
  std::optional<double> askForEstimate(const Files& files, const std::string& declaredTask, std::int64_t nowMs,
                                       const std::stop_token& stop);
  std::optional<std::string> userInstructions(const Files& files);
  void appendRow(const Files& files, const ClassifierTick& tick);

  bool isServerTrusted(std::int64_t nowMs, const std::stop_token& stop);
  void writeCadence(const Files& files, const ClassifierCadence::State& state);
  void say(const std::string& topic, const std::string& line);
  void settle(const std::string& topic) { said_.erase(topic); }

  World world_;
  ClassifierCadence::Config mainsConfig_, batteryConfig_;
  ClassifierCadence::Config config_;  ///< of this pass
  std::string endpoint_, model_;
  Denylist denylist_;
  ModelIntegrityCheck integrity_;
  WindowContentReader reader_;
  RecordingControlsWatch controls_;
  std::optional<IncrementalJSONLReader<EventLogEvent>> events_;
  std::optional<EventLogEvent> newestDeclaration_;
  std::map<std::string, std::set<std::string>> said_;  ///< by topic the troubles that were told, each once until the topic is settled
  bool modelIsDown_ = false;
  std::int64_t restUntilMs_ = 0;
};

}  // namespace halvo
