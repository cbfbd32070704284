// The same for the terminal: declare, talk, look.
#include <CLI/CLI.hpp>

#include "CaptureShared/DataRoot/AgentConfig.h"
#include "CaptureShared/DataRoot/AgentUmask.h"
#include "CaptureShared/DataRoot/ConfigSourcedKeys.h"
#include "CaptureShared/Foundation/Text.h"
#include "app/Commands.h"
#include "app/FrameCommands.h"
#include "app/MemoryCommands.h"
#include "app/QuietCommands.h"
#include "app/TeachingCommands.h"
#include "app/ModelCommands.h"
#include "app/RecordingCommands.h"
#include "app/RetentionCommands.h"
#include "app/ReviewCommands.h"
#include "app/ServiceCommands.h"
#include "app/SetupCommands.h"

int main(int argc, char** argv) {
  halvo::AgentUmask::apply();
  halvo::ConfigSourcedKeys::fill(halvo::AgentConfig::bootstrapProcessEnvironment());

  CLI::App app("Halvo: say what you mean to be doing, and stay honest about it.");
  app.require_subcommand(1);
  app.set_version_flag("--version", "halvo " HALVO_VERSION);
  std::string words;
  std::optional<std::string> until, why;
  double waitSec = 0;
  std::size_t count = 40;
  bool follow = false, withLog = false, withThinking = false, isSure = false;
  int exitStatus = 0;
  using namespace halvo;

  auto* declare = app.add_subcommand("declare", "say what you mean to be doing");
  declare->add_option("task", words, "in your own words")->required();
  declare->add_option("--until", until, "when it should be done, as in 5:00pm");
  declare->add_option("--why", why, "why it matters to you");
  declare->callback([&] { exitStatus = Commands::declare(words, until, why); });

  auto* rest = app.add_subcommand("break", "declare a break");
  rest->add_option("--until", until, "when it ends, as in 3:15pm");
  rest->callback([&] { exitStatus = Commands::takeBreak(until); });

  app.add_subcommand("clear", "take the declaration back")->callback([&] { exitStatus = Commands::clear(); });
  app.add_subcommand("status", "what the system believes right now")->callback([&] { exitStatus = Commands::status(); });

  auto* log = app.add_subcommand("log", "what happened: events, verdicts, gate decisions");
  log->add_option("-n", count, "how many lines")->capture_default_str();
  log->add_flag("-f,--follow", follow, "go on as it happens");
  log->callback([&] { exitStatus = Commands::log(count, follow); });

  auto* say = app.add_subcommand("say", "say something to Lark");
  say->add_option("text", words, "what to say")->required();
  say->add_option("--wait", waitSec, "seconds to wait for the answer")->capture_default_str();
  say->callback([&] { exitStatus = Commands::say(words, waitSec); });

  auto* chat = app.add_subcommand("chat", "the conversation, live; type to talk");
  chat->add_flag("--log", withLog, "show verdicts and gate decisions too");
  chat->add_flag("--thinking", withThinking, "show what Lark thinks too");
  chat->callback([&] { exitStatus = Commands::chat(withLog, withThinking); });

  auto* memory = app.add_subcommand("memory", "what Lark remembers, and where each of it came from");
  memory->require_subcommand(0, 1);
  auto* forget = memory->add_subcommand("forget", "forget everything up to now");
  forget->add_flag("--yes", isSure, "don't ask");
  memory->callback([&] { exitStatus = forget->parsed() ? MemoryCommands::forget(isSure) : MemoryCommands::show(); });

  std::optional<std::string> model;
  auto* models = app.add_subcommand("models", "the local models: which there are, and which are here");
  models->require_subcommand(0, 1);
  auto* installModel = models->add_subcommand("install", "download one, or go on with a download");
  installModel->add_option("name", model, "which; else the one that is configured");
  auto* verifyModel = models->add_subcommand("verify", "read its files and check them");
  verifyModel->add_option("name", model, "which; else the one that is configured");
  auto* removeModel = models->add_subcommand("remove", "take its files off the disk");
  removeModel->add_option("name", words, "which")->required();
  models->callback([&] {
    exitStatus = installModel->parsed()  ? ModelCommands::install(model)
                 : verifyModel->parsed() ? ModelCommands::verify(model)
                 : removeModel->parsed() ? ModelCommands::remove(words)
                                         : ModelCommands::list();
  });

  std::optional<std::string> keepFor, onRestart;
  bool deletes = false;
  auto* retention = app.add_subcommand("retention", "how long recordings are kept, and what would be deleted now");
  retention->require_subcommand(0, 1);
  retention->add_flag("--apply", deletes, "delete it");
  retention->add_flag("--yes", isSure, "don't ask");
  auto* setRetention = retention->add_subcommand("set", "change how long they are kept");
  setRetention->add_option("days", keepFor, "a number of days, or off");
  setRetention->add_option("--on-restart", onRestart, "delete everything from before a restart of the machine")
      ->check(CLI::IsMember({"on", "off"}));
  retention->callback([&] {
    exitStatus = setRetention->parsed() ? RetentionCommands::set(keepFor, onRestart)
                 : deletes              ? RetentionCommands::apply(isSure)
                                        : RetentionCommands::show();
  });

  std::vector<std::string> pauseFor;
  std::string quality;
  auto* recording = app.add_subcommand("recording", "whether the screen is recorded now; a pause of it, and its quality");
  recording->require_subcommand(0, 1);
  auto* pauseRecording = recording->add_subcommand("pause", "record nothing for a while");
  pauseRecording->add_option("for", pauseFor, "15m, 2h or until 16:30; else until you resume");
  auto* resumeRecording = recording->add_subcommand("resume", "record again");
  auto* recordIn = recording->add_subcommand("quality", "how large the pictures are");
  recordIn->add_option("quality", quality, "full: as large as the display; compact: at most 1280 pixels wide")
      ->required()
      ->check(CLI::IsMember({"full", "compact"}));
  recording->callback([&] {
    exitStatus = pauseRecording->parsed()    ? RecordingCommands::pause(Text::join(pauseFor, " "))
                 : resumeRecording->parsed() ? RecordingCommands::resume()
                 : recordIn->parsed()        ? RecordingCommands::choose(quality)
                                             : RecordingCommands::show();
  });

  ReviewCommands::Draw draw;
  bool everything = false;
  auto* review = app.add_subcommand("review", "say what was really going on at past moments; goes on where you left it");
  review->require_subcommand(0, 1);
  review->add_option("--mode", draw.mode, "verdict_blind: at random; interesting_moments: what stood out")
      ->check(CLI::IsMember({"verdict_blind", "interesting_moments"}))
      ->capture_default_str();
  review->add_option("--limit", draw.limit, "how many moments")->check(CLI::Range(1, 1000))->capture_default_str();
  review->add_option("--seed", draw.seed, "the same seed draws the same moments");
  review->add_flag("--new", draw.isNew, "give up the review that you left");
  review->add_flag("--from-logs", draw.fromLogs, "moments without footage too, and no clips");
  auto* score = review->add_subcommand("score", "how often the verdicts agreed with your answers");
  score->add_flag("--all", everything, "with answers that were not blind or not at random, too");
  review->callback([&] { exitStatus = score->parsed() ? ReviewCommands::score(everything) : ReviewCommands::review(draw); });

  FrameCommands::Request moment;
  const auto momentCommand = [&](const char* name, const char* what, int (*command)(const FrameCommands::Request&)) {
    auto* added = app.add_subcommand(name, what);
    added->add_option("time", moment.time, "as in 14:05, \"yesterday 14:05\" or \"2026-11-25 14:05:30\"")->required();
    added->add_option("-o,--output", moment.output, "the file to write");
    added->add_option("--display", moment.display, "which, from 0")->check(CLI::NonNegativeNumber)->capture_default_str();
    added->callback([&exitStatus, &moment, command] { exitStatus = command(moment); });
  };
  momentCommand("frame", "the screen at a moment, as a picture", FrameCommands::frame);
  momentCommand("play", "the recording around a moment, as a file that any player opens", FrameCommands::play);

  auto* quiet = app.add_subcommand("quiet", "be left alone: 30m, 1h, 3h, today, until-i-say, or off; without a word: whether you are");
  std::string length;
  quiet->add_option("length", length)->check(CLI::IsMember({"30m", "1h", "3h", "today", "until-i-say", "off"}));
  quiet->add_option("--reason", why, "what for, if you like");
  quiet->callback([&] {
    const auto duration = QuietCommands::durationOf(length);
    exitStatus = duration ? QuietCommands::ask(*duration, why) : length == "off" ? QuietCommands::off() : QuietCommands::show();
  });

  auto* corrections = app.add_subcommand("corrections", "what you told Lark about how to behave");
  corrections->require_subcommand(0, 1);
  std::int64_t atMs = 0;
  auto* drop = corrections->add_subcommand("delete", "delete one, by its number in the list");
  drop->add_option("number", atMs)->required();
  corrections->callback([&] { exitStatus = drop->parsed() ? TeachingCommands::deleteCorrection(atMs) : TeachingCommands::corrections(); });

  auto* notes = app.add_subcommand("notes", "your standing notes for gate, coach and classifier");
  notes->require_subcommand(0, 1);
  std::optional<std::string> note;
  auto* edit = notes->add_subcommand("set", "write one; an empty one takes it back");
  edit->add_option("for", words, "gate, coach or classifier")->required();
  edit->add_option("text", note, "read from the standard input when it is left out");
  notes->callback([&] { exitStatus = edit->parsed() ? TeachingCommands::setNote(words, note) : TeachingCommands::notes(); });

  auto* feedback = app.add_subcommand("feedback", "grade Lark's last reply; without a grade: the reply and its grades");
  feedback->require_subcommand(0, 1);
  using namespace CoachFeedbackWriter;
  const auto gradeCommand = [&](const char* name, const char* what, bool takesText, std::function<Feedback()> made) {
    auto* command = feedback->add_subcommand(name, what);
    if (takesText) command->add_option("text", words)->required();
    command->add_option("--note", note, "in your own words");
    command->callback([&exitStatus, made] { exitStatus = TeachingCommands::grade(made()); });
  };
  bool confirms = false;
  const auto criterion = [&](Mode mode) -> Feedback {
    if (confirms) return Confirmation{.mode = mode, .text = words, .note = note};
    return Criterion{.mode = mode, .text = words, .note = note};
  };
  gradeCommand("keep", "it was good", false, [&] { return Keep{note}; });
  gradeCommand("fault", "it was not", false, [&] { return Fault{note}; });
  gradeCommand("must", "what any good reply here has to hold", true, [&] { return criterion(Mode::mustContain); });
  gradeCommand("must-not", "what no good reply here may hold", true, [&] { return criterion(Mode::mustNotContain); });
  for (const char* name : {"must", "must-not"})
    feedback->get_subcommand(name)->add_flag("--confirm", confirms, "this reply meets it");
  auto* withdraw = feedback->add_subcommand("delete", "delete one grade, by its name in the list");
  withdraw->add_option("name", words)->required();
  withdraw->callback([&] { exitStatus = TeachingCommands::deleteFeedback(words); });
  feedback->callback([&] {
    if (feedback->get_subcommands().empty()) exitStatus = TeachingCommands::feedback();
  });

  std::optional<std::string> agent;
  auto* services = app.add_subcommand("services", "the background agents: what each is doing, and how they come and go");
  services->require_subcommand(0, 1);
  bool fromHere = false, keepsData = false;
  const auto serviceCommand = [&](const char* name, const char* what, std::function<int()> act) {
    auto* command = services->add_subcommand(name, what);
    command->callback([&exitStatus, act] { exitStatus = act(); });
    return command;
  };
  const auto onAgents = [&](const char* name, const char* what, std::function<int()> act) {
    auto* command = serviceCommand(name, what, std::move(act));
    command->add_option("agent", agent, "which; else all")->type_name("TEXT:{capture,coach,memory,classifier,model}");
    return command;
  };
  onAgents("install", "register and start them", [&] { return ServiceCommands::install(agent, fromHere); })
      ->add_flag("--from-here", fromHere, "from this copy, wherever it is");
  onAgents("restart", "end and start them", [&] { return ServiceCommands::restart(agent); });
  onAgents("stop", "end them until the next login", [&] { return ServiceCommands::stop(agent); });
  onAgents("remove", "end them and take them from the service manager", [&] { return ServiceCommands::remove(agent); });
  onAgents("logs", "the last lines of their logs", [&] { return ServiceCommands::logs(agent); });
  serviceCommand("begin", "start those that are installed and do not run; the desktop does this at login", ServiceCommands::begin);
  services->callback([&] {
    if (services->get_subcommands().empty()) exitStatus = ServiceCommands::status();
  });

  auto* setup = app.add_subcommand("setup", "the first steps: where to record, which model, what is never looked at");
  setup->add_flag("--from-here", fromHere, "register the agents from this copy, wherever it is");
  setup->callback([&] { exitStatus = SetupCommands::setup(fromHere); });
  auto* uninstall = app.add_subcommand("uninstall", "take away the agents, the recordings, the settings and the logs; asks first");
  uninstall->add_flag("--keep-data", keepsData, "leave recordings, settings and keys");
  uninstall->add_flag("--yes", isSure, "don't ask");
  uninstall->callback([&] { exitStatus = SetupCommands::uninstall(isSure, keepsData); });

  CLI11_PARSE(app, argc, argv);
  return exitStatus;
}
