// Plays the fixed scene and tells how it ended.
#include <CLI/CLI.hpp>

#include "CaptureShared/DataRoot/AgentUmask.h"
#include "CaptureShared/Foundation/UserFolders.h"
#include "tools/Scene/Scene.h"

int main(int argc, char** argv) {
  halvo::AgentUmask::apply();
  CLI::App app("Plays a fixed scene on a private desktop with the real programs.");
  std::string bin, work;
  app.add_option("--bin", bin, "the folder of the programs")->required();
  app.add_option("--work", work, "where to write; emptied first (standard: \"scene\" in the temporary folder)");
  bool isRemote = false;
  app.add_flag("--remote", isRemote, "the coach runs on a remote service, which dies in the middle of a reply");
  bool isQuiet = false;
  app.add_flag("--quiet", isQuiet, "they ask to be left alone, and teach Lark something");
  CLI11_PARSE(app, argc, argv);
  if (work.empty()) work = halvo::UserFolders::systemTemp(halvo::processEnvironment()) / "scene";
  halvo::Scene scene({.bin = bin, .work = work, .isQuiet = isQuiet, .isRemote = isRemote});
  const bool passed = scene.play();
  std::printf("data root: %s\n", scene.dataRoot().c_str());
  std::printf("the scene %s\n", passed ? "passed" : "FAILED");
  return passed ? 0 : 1;
}
