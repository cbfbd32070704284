#include "app/SetupCommands.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "AmbitudeAppKit/AgentControl/BackgroundAgent.h"
#include "AmbitudeAppKit/Live/TerminalText.h"
#include "AmbitudeAppKit/Stores/DataRootSetup.h"
#include "AmbitudeAppKit/Stores/OwnDenylist.h"
#include "CaptureShared/DataRoot/AgentProcess.h"
#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/DataRoot/DataRootLayout.h"
#include "CaptureShared/DataRoot/SpotlightExclusion.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/UserFolders.h"
#include "CaptureShared/Intention/CurrentTask.h"
#include "CaptureShared/Privacy/Denylist.h"
#include "CaptureShared/Provisioning/ModelProvisioning.h"
#include "CaptureShared/Recording/Retention/PurgeGuard.h"
#include "Platform/Linux/LinuxMachine.h"
#include "app/ArchiveKey.h"
#include "app/CommandOutput.h"
#include "app/ServiceCommands.h"

namespace halvo::SetupCommands {

namespace {

namespace fs = std::filesystem;
using CommandOutput::fail;
using CommandOutput::print;

constexpr const char* nothingChanged = "stopped; nothing was changed";

/// One answer; absent when there is none to come or the person gives up.
std::optional<std::string> ask(const std::string& question) {
  std::fputs((question + " ").c_str(), stdout);
  std::fflush(stdout);
  std::string line;
  if (!std::getline(std::cin, line)) return std::nullopt;
  auto answer = std::string(Text::trim(line));
  if (answer == "q") return std::nullopt;
  return answer;
}

/// Asks until `check` has nothing against the answer. An empty answer means `standard`.
template <class Check>
std::optional<std::string> askUntilGood(const std::string& question, const std::string& standard, Check&& check) {
  while (auto answer = ask(question)) {
    if (answer->empty()) answer = standard;
    const std::optional<std::string> objection = check(*answer);
    if (!objection) return answer;
    print("  " + TerminalText::oneLine(*objection));
  }
  return std::nullopt;
}

/// A name that means itself in a comma-separated list and in an environment file.
std::optional<std::string> objectionToNames(const std::string& names) {
  for (const unsigned char c : names)
    if (c < 0x20 || c == 0x7f || std::string_view("\"'\\$`=#;").find(static_cast<char>(c)) != std::string_view::npos)
      return "letters, digits, blanks, dots and dashes, with commas between the names";
  return Text::isValidUTF8(names) ? std::nullopt : std::optional<std::string>("that is no text");
}

struct Answers {
  std::string root, model, extraNames;
};

std::optional<Answers> askAll(std::optional<std::uint64_t> memory) {
  Answers answers;
  print("Halvo, set up in five steps. An empty answer takes what stands in brackets; q stops, and nothing has changed then.\n");
  print("1. Where to keep what is recorded. Only you can read it. Never moved elsewhere when the place is away.");
  const auto present = DataPaths::configuredRoot().value_or(DataPaths::defaultRootForNewInstall()).string();
  const auto root = askUntilGood(fmt::format("   folder [{}]:", present), present, DataRootSetup::objection);
  if (!root) return std::nullopt;
  answers.root = *root;

  print("\n2. The model that looks at the screen runs on this machine.");
  for (const auto& model : ModelProvisioning::knownModels())
    print(fmt::format("   {:<18} {:>8} to download{}", model.name, ModelProvisioning::humanBytes(model.totalBytes),
                      memory && !ModelProvisioning::modelFitsAvailableMemory(*memory, model) ? ", too large for this machine" : ""));
  const auto recommended = memory ? ModelProvisioning::recommendedDefault(*memory) : std::nullopt;
  if (!recommended) print("   No model is recommended for this machine's memory; the smallest is the standard answer.");
  const auto standard = recommended.value_or(ModelProvisioning::knownModels().back().name);
  const auto question = fmt::format("   model [{}]:", standard);
  const auto model = askUntilGood(question, standard, [](const std::string& name) -> std::optional<std::string> {
    if (ModelProvisioning::known(name)) return std::nullopt;
    return "it is none of these";
  });
  if (!model) return std::nullopt;
  answers.model = ModelProvisioning::known(*model)->name;

  print("\n3. What is recorded: the application in front, window titles, the browser's address, idle time, the screen (encrypted), what\n"
        "   you declare and what you and Lark say. What never leaves this machine: the picture of the screen, whatever you choose. As\n"
        "   set up here, nothing else does either; with a remote coach, which you would have to choose, text does, card numbers and\n"
        "   credentials taken out.");
  const auto agrees = askUntilGood("   go on? [y]:", "y", [](const std::string& text) -> std::optional<std::string> {
    if (text == "y" || text == "n") return std::nullopt;
    return "y or n";
  });
  if (agrees != "y") return std::nullopt;

  const auto names = Denylist::defaultAppNames();
  print("\n4. Windows that are never captured: " + Text::join(names, ", ") + ", and the like.");
  const auto more = askUntilGood("   more of them, with commas between [none]:", "", objectionToNames);
  if (!more) return std::nullopt;
  answers.extraNames = *more;

  print(fmt::format("\n5. Record to {}, judge with {}, and start these agents, now and at each login:", TerminalText::oneLine(answers.root),
                    answers.model));
  for (const auto& agent : backgroundAgents)
    print(fmt::format("   {:<15} {}{}", agent.name, agent.description.substr(agent.description.find(' ') + 1), agent.isScheduled ? ", every night" : ""));
  const auto starts = ask("   type start to do it:");
  return starts == "start" ? std::optional(answers) : std::nullopt;
}

void carryOut(const Answers& answers, std::optional<std::uint64_t> memory) {
  if (!answers.extraNames.empty()) {
    auto names = Denylist::defaultAppNames();
    for (auto& name : OwnDenylist::namesIn(answers.extraNames)) names.push_back(std::move(name));
    OwnDenylist::write(names, processEnvironment());
  }
  DataRootSetup::carryOut({.root = answers.root, .model = answers.model, .physicalMemoryBytes = memory});
  ArchiveKey::provision();
}

void list(const char* title, const std::vector<std::string>& paths) {
  constexpr std::size_t shown = 20;
  if (paths.empty()) return;
  print(fmt::format("{} ({}):", title, paths.size()));
  for (std::size_t i = 0; i < std::min(shown, paths.size()); ++i) print("  " + TerminalText::oneLine(paths[i]));
  if (paths.size() > shown) print(fmt::format("  and {} more", paths.size() - shown));
}

using Roots = std::vector<fs::path>;

/// Where a path really leads.
fs::path resolved(const fs::path& path) {
  std::error_code error;
  const auto place = fs::weakly_canonical(path, error);
  return error ? path.lexically_normal() : place;
}

/// Every data root that is known and there: the present one, the configured one, and the one that set-up offers. Links are resolved.
Roots knownRoots() {
  Roots roots;
  for (const auto& root : {DataPaths::dataRoot(), DataPaths::configuredRoot().value_or(""), DataPaths::defaultRootForNewInstall()}) {
    std::error_code ignored;
    if (root.empty() || !fs::is_directory(root, ignored)) continue;
    if (const auto place = resolved(root); std::find(roots.begin(), roots.end(), place) == roots.end()) roots.push_back(place);
  }
  return roots;
}

/// Which recordings would be left without their key; absent when all that are known of can be deleted.
std::optional<std::string> leftWithoutKey() {
  if (DataPaths::dataRootSource() == DataPaths::RootSource::unconfigured) return std::nullopt;
  if (!DataPaths::isDataRootAvailable()) return DataPaths::dataRootUnavailableReason();
  const auto configured = DataPaths::configuredRoot();
  if (!configured || resolved(*configured) == resolved(DataPaths::dataRoot())) return std::nullopt;
  return "the settings name the data root " + configured->string() + ", and AMBITCAP_DATA_ROOT " + DataPaths::dataRoot().string();
}

/// Removes one of our folders or files outside the data roots, but none that one of them is in; a link goes and not what it leads to.
int removeWhole(const fs::path& path, const Roots& roots) {
  const auto place = resolved(path.parent_path()) / path.filename();
  std::error_code error;
  for (const auto& root : roots)
    if (const auto within = root.lexically_relative(place); !within.empty() && *within.begin() != ".." && fs::exists(root, error))
      return fail(path.string() + ": a data root is in it, so it stays");
  fs::remove_all(path, error);
  return error ? fail(path.string() + ": " + error.message()) : 0;
}

/// Whether a name in the support folder is ours. An unfinished write has the file's name with more behind a dot.
bool isOfSupport(const std::string& name) {
  for (const char* folder : {"keys", "models", "llama", "service-migration", SpotlightExclusion::markerName})
    if (name == folder) return true;
  for (const std::string file : {"config.json", "retention.json", "appearance.json", "capture-fault.json", "call-hold-override.json",
                                 "llama-server-status.json", "model-integrity-refusal.json", "spotlight-markers.json"})
    if (name == file || name.starts_with(file + ".")) return true;
  return false;
}

/// What is in the support folder, data roots apart.
struct Support {
  std::vector<std::string> ours, others;
};
Support supportIn(const fs::path& support, const Roots& roots) {
  Support found;
  std::error_code error;
  const bool isRoot = std::find(roots.begin(), roots.end(), resolved(support)) != roots.end();
  for (const auto& entry : fs::directory_iterator(support, error)) {
    const auto name = entry.path().filename().string();
    if (isOfSupport(name))
      found.ours.push_back(entry.path());
    else if (!isRoot && std::find(roots.begin(), roots.end(), resolved(entry.path())) == roots.end())
      found.others.push_back(entry.path());
  }
  return found;
}

/// Removes what is ours in the support folder, and the folder when nothing is left in it.
int removeSupport(const fs::path& support, const Roots& roots) {
  int status = 0;
  for (const auto& path : supportIn(support, roots).ours) status |= removeWhole(path, roots);
  std::error_code ignored;
  if (!fs::is_symlink(support, ignored)) fs::remove(support, ignored);
  return status;
}

/// Copies of recordings in the clear, which a program that was killed leaves behind. The temporary folder goes when nothing else is in it.
int removeTemporary(const Environment& environment, const Roots& roots) {
  fs::path folder;
  try {
    folder = UserFolders::systemTemp(environment);
  } catch (const std::runtime_error&) {
    return 0;  // it is somebody else's, so nothing of ours was ever written there
  }
  int status = 0;
  for (const char* name : {"halvo-video-decrypt", "LarkVideoRemux", "halvo-review-clips"}) status |= removeWhole(folder / name, roots);
  std::error_code ignored;
  if (value(environment, "TMPDIR") != folder.string()) fs::remove(folder, ignored);
  return status;
}

/// Removes the file that holds the declaration, and its folder when that is the usual one and nothing else is in it.
int removeTask(const Roots& roots) {
  const auto file = CurrentTask::path();
  std::error_code ignored;
  const int status = removeWhole(file, roots);
  if (file.parent_path().filename() == ".ambitude") fs::remove(file.parent_path(), ignored);
  return status;
}

int removeData(const Roots& roots) {
  int status = 0;
  for (const auto& root : roots) {
    const auto removal = DataRootLayout::removeOwned(root, PurgeGuard::currentMachineIsProtected(LinuxMachine()));
    for (const auto& failure : removal.failures) status = fail(TerminalText::oneLine(failure));
    list("folders that were not empty and stay", removal.leftBehind);
  }
  return status;
}

/// What of the recordings, settings and keys goes, and what stays.
void showData(const Roots& roots, const fs::path& support) {
  for (const auto& root : roots) {
    auto survey = DataRootLayout::survey(root);
    // Files of both sorts lie together where the support folder is the root.
    if (root == resolved(support)) std::erase_if(survey.unknown, isOfSupport);
    print("data root: " + TerminalText::oneLine(root.string()));
    list("  Halvo's, to be deleted", survey.owned);
    list("  not Halvo's, so it stays", survey.unknown);
  }
  const auto found = supportIn(support, roots);
  list("settings, keys and models, to be deleted", found.ours);
  list("not Halvo's, so it stays", found.others);
  print("the declaration, to be deleted: " + CurrentTask::path().string());
}

}  // namespace

int setup(bool fromHere) {
  const auto memory = LinuxMachine().physicalMemoryBytes();
  if (DataPaths::configFileExistsButFailedToParse())
    return fail(DataPaths::configURL().string() + " can't be read as settings; mend or remove it first");
  const auto answers = askAll(memory);
  if (!answers) return fail(nothingChanged);
  try {
    carryOut(*answers, memory);
  } catch (const std::exception& error) {
    return fail(std::string("not set up: ") + error.what() + "; halvo setup starts again from here");
  }
  print("settings: " + DataPaths::configURL().string());
  const int status = ServiceCommands::installAfterSetup(fromHere);
  print("next: halvo models install fetches the model; halvo declare \"what you mean to do\" begins");
  return status;
}

int uninstall(bool isSure, bool keepsData) {
  const auto environment = processEnvironment();
  if (PurgeGuard::currentMachineIsProtected(LinuxMachine())) return fail(PurgeGuard::refusalExplanation);
  if (DataPaths::configFileExistsButFailedToParse())
    return fail(DataPaths::configURL().string() + " can't be read as settings, which tell where recordings are; mend or remove it first");
  if (const auto recordings = keepsData ? std::nullopt : leftWithoutKey())
    return fail(*recordings + "; nothing was removed, because its recordings would be left without their key");
  const auto roots = knownRoots();
  const auto support = UserFolders::supportDir(environment), logs = UserFolders::logsRoot(environment) / AgentProcess::logSubdirectory;
  print("the background agents stop and are removed");
  list("files of an old installation, to be deleted", ServiceCommands::legacyFiles());
  if (!keepsData) showData(roots, support);
  print("logs, to be deleted: " + logs.string());
  if (!isSure && ask("Type \"remove\" to go on:") != "remove") return fail("nothing was removed");
  // A program that still runs would write again.
  if (ServiceCommands::remove({}) != 0) return fail("the recordings and settings are as they were");
  int status = removeWhole(logs, roots) | removeTemporary(environment, roots);
  if (!keepsData) {
    // What could not be deleted must not lose its key.
    if (removeData(roots) != 0) return fail("the settings and keys stay until the rest is gone");
    status |= removeSupport(support, roots) | removeWhole(OwnDenylist::file(environment), roots) | removeTask(roots);
  }
  print(status == 0 ? "removed" : "removed but for what is said above");
  return status;
}

}  // namespace halvo::SetupCommands
