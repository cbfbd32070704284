#include "AmbitudeAppKit/Entry/AppEntryPoint.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "AmbitudeAppKit/Entry/StateDump.h"
#include "CaptureShared/DataRoot/AgentConfig.h"
#include "CaptureShared/DataRoot/ConfigSourcedKeys.h"

namespace halvo::AppEntryPoint {

namespace {

void print(const std::string& line) { std::fputs((line + "\n").c_str(), stdout); }

bool has(const std::vector<std::string>& arguments, const char* word) {
  return std::find(arguments.begin(), arguments.end(), word) != arguments.end();
}

}  // namespace

Mode mode(const std::vector<std::string>& arguments) {
  if (has(arguments, "--dump")) return Mode::dump;
  return has(arguments, "--render-ui") ? Mode::renderUI : Mode::application;
}

void run(const std::vector<std::string>& arguments, const std::function<void()>& mainLoop) {
  std::signal(SIGPIPE, SIG_IGN);  // a reader that has read enough is no failure of ours
  ConfigSourcedKeys::fill(AgentConfig::bootstrapProcessEnvironment());
  switch (mode(arguments)) {
    case Mode::dump: StateDump::run(print, Calendar::local()); break;
    case Mode::renderUI: print("--render-ui is a debug-only tool that is not in this build."); break;
    case Mode::application:
      try {
        mainLoop();
      } catch (const std::exception& error) {
        // A root that can't be written to, say. Whoever started us reads the reason; the exit status says nothing about it.
        std::fprintf(stderr, "%s\n", error.what());
      }
      break;
  }
  std::fflush(stdout);
  std::_Exit(0);
}

}  // namespace halvo::AppEntryPoint
