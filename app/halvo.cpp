// The same for the terminal: declare, talk, look.
#include <CLI/CLI.hpp>

#include "CaptureShared/DataRoot/AgentConfig.h"
#include "CaptureShared/DataRoot/AgentUmask.h"
#include "CaptureShared/DataRoot/ConfigSourcedKeys.h"
#include "app/Commands.h"
#include "app/MemoryCommands.h"
#include "app/QuietCommands.h"
#include "app/TeachingCommands.h"
#include "app/ModelCommands.h"
#include "app/RetentionCommands.h"

int main(int argc, char** argv) {
  halvo::AgentUmask::apply();
  halvo::ConfigSourcedKeys::fill(halvo::AgentConfig::bootstrapProcessEnvironment());

  CLI::App app("Halvo: say what you mean to be doing, and stay honest about it.");
  app.require_subcommand(1);
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

  CLI11_PARSE(app, argc, argv);
  return exitStatus;
}
