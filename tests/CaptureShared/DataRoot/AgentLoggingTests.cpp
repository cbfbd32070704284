#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "CaptureShared/DataRoot/AgentLogging.h"
#include "CaptureShared/DataRoot/AgentUmask.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "tests/CaptureShared/DataRoot/Home.h"
#include "tests/support/Eventually.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;

std::string textOf(const fs::path& file) { return fs::exists(file) ? readFile(file) : ""; }

/// Runs `body` as a program of its own and answers its exit code, or 128 + signal.
template <class F>
int inChild(F&& body) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(body());
  int status = 0;
  EXPECT_TRUE(test::eventually([&] { return ::waitpid(child, &status, WNOHANG) == child; }, 30));
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

TEST(AgentLogging, inATerminalTheStreamsAreLeftAlone) {
  test::Home home;
  home.writeConfig(R"({"env":{"AMBITCAP_USER_NAME":"Ada"}})");
  home.set("AMBITCAP_USER_NAME", {});
  home.set("SYSTEMD_EXEC_PID", std::to_string(::getppid()));  // inherited from whoever was started as a service
  EXPECT_EQ(AgentLogging::bootstrap("Halvo", "Agent"), std::nullopt);
  EXPECT_STREQ(std::getenv("AMBITCAP_USER_NAME"), "Ada");
  EXPECT_FALSE(fs::exists(home.path() / "Library/Logs"));
}

TEST(AgentLogging, aServiceWritesToItsLogWhichRotatesWhileItRuns) {
  test::Home home;
  const auto log = AgentLogging::logURL("Halvo", "Agent");
  EXPECT_EQ(log, home.path() / "Library/Logs/Halvo/Agent.log");
  home.write("Library/Logs/Halvo/Agent.log", std::string(1000, 'o'));
  home.write("Library/Logs/Halvo/Agent.log.1", "the generation before");
  const int code = inChild([&] {
    AgentUmask::apply();
    ::setenv("SYSTEMD_EXEC_PID", std::to_string(::getpid()).c_str(), 1);
    if (AgentLogging::bootstrap("Halvo", "Agent", 1000, 0.02) != log) return 2;
    std::printf("to standard output\n");  // line by line, so on the disk at once
    std::fprintf(stderr, "to standard error");
    if (textOf(log).find("to standard output\nto standard error") == std::string::npos) return 3;
    std::printf("%s\n", std::string(1000, 'n').c_str());
    if (!test::eventually([&] { return textOf(log.string() + ".1").find("nnn") != std::string::npos; })) return 4;
    // Behind the rotation the streams follow to the new file.
    if (!test::eventually([&] {
          std::printf("after\n");
          return textOf(log).find("after\n") != std::string::npos;
        }))
      return 5;
    // The thread that rotates takes no signal: the one who waits for it gets it.
    sigset_t ending;
    ::sigemptyset(&ending);
    ::sigaddset(&ending, SIGTERM);
    ::pthread_sigmask(SIG_BLOCK, &ending, nullptr);
    ::kill(::getpid(), SIGTERM);
    int signal = 0;
    return ::sigwait(&ending, &signal) == 0 && signal == SIGTERM ? 0 : 6;
  });
  EXPECT_EQ(code, 0);
  const auto text = textOf(log);
  EXPECT_TRUE(text.starts_with("[AgentLogging] log rotated at ")) << text;
  EXPECT_NE(text.find(" bytes (cap 1000) — previous generation is Agent.log.1. A child process that inherited this log before the rotation "
                      "keeps writing "
                      "to that older file until it restarts.\n"),
            std::string::npos);
  EXPECT_EQ(fs::status(log).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_TRUE(fs::exists(log.parent_path() / ".metadata_never_index"));
}

TEST(AgentLogging, rotatesAtTheCapAndKeepsOneGeneration) {
  test::Home home;
  const auto log = AgentLogging::logURL("Halvo", "Agent");
  EXPECT_FALSE(AgentLogging::rotateIfNeeded("Halvo", "Agent", 10));
  home.write("Library/Logs/Halvo/Agent.log", "123456789");
  EXPECT_FALSE(AgentLogging::rotateIfNeeded("Halvo", "Agent", 10));
  home.write("Library/Logs/Halvo/Agent.log", "1234567890");
  EXPECT_TRUE(AgentLogging::rotateIfNeeded("Halvo", "Agent", 10));
  EXPECT_EQ(textOf(log.string() + ".1"), "1234567890");
  EXPECT_TRUE(AgentLogging::rotateIfNeeded("Halvo", "Agent", 10));
  EXPECT_TRUE(textOf(log.string() + ".1").starts_with("[AgentLogging] "));
}

}  // namespace
}  // namespace halvo
