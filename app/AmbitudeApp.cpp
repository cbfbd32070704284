// The desktop application's start. `--dump` prints what the system believes and ends; the window is a program beside this one, so that a dump
// loads none of its libraries.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <unistd.h>

#include "AmbitudeAppKit/Entry/AppEntryPoint.h"
#include "CaptureShared/DataRoot/AgentUmask.h"
#include "CaptureShared/Foundation/ExecutablePath.h"

int main(int argc, char** argv) {
  using namespace halvo;
  AgentUmask::apply();
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (AppEntryPoint::mode(arguments) == AppEntryPoint::Mode::application) {
    // Before anything touches the environment: the window's program reads it as it was given.
    const auto window = ExecutablePath::siblingDirectory(ExecutablePath::resolveSelf()) / "AmbitudeWindow";
    ::execv(window.c_str(), argv);
    std::fprintf(stderr, "%s: %s\n", window.c_str(), std::strerror(errno));
    return 0;
  }
  AppEntryPoint::run(arguments, [] {});
}
