// The same for the terminal: declare, talk, look.
#include <CLI/CLI.hpp>

#include "CaptureShared/DataRoot/AgentConfig.h"
#include "CaptureShared/DataRoot/AgentUmask.h"
#include "CaptureShared/DataRoot/ConfigSourcedKeys.h"
#include "app/Commands.h"

int main(int argc, char** argv) {
  halvo::AgentUmask::apply();
  halvo::ConfigSourcedKeys::fill(halvo::AgentConfig::bootstrapProcessEnvironment());

  CLI::App app("Halvo: say what you mean to be doing, and stay honest about it.");
  app.require_subcommand(1);
  std::string words;
  std::optional<std::string> until, why;
  double waitSec = 0;
  std::size_t count = 40;
  bool follow = false, withLog = false;
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
  chat->callback([&] { exitStatus = Commands::chat(withLog); });

  CLI11_PARSE(app, argc, argv);
  return exitStatus;
}
