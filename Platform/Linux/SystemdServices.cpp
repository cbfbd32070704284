#include "Platform/Linux/SystemdServices.h"

#include <cerrno>
#include <system_error>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Spawn.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo {

namespace fs = std::filesystem;

namespace {

constexpr const char* shownProperties =
    "--property=LoadState,ActiveState,SubState,UnitFileState,MainPID,ExecMainStatus,ExecMainCode,ExecMainStartTimestampMonotonic,NRestarts,"
    "ExecStart,FragmentPath,StateChangeTimestamp";
constexpr int errnoOfUnansweredCall = ETIMEDOUT;

std::string_view field(const SystemdServices::Properties& properties, std::string_view key) {
  const auto found = properties.find(key);
  return found == properties.end() ? std::string_view() : std::string_view(found->second);
}

/// "{ path=/usr/lib/halvo/Signals ; argv[]=..." → the path.
std::string_view programIn(std::string_view execStart) {
  constexpr std::string_view key = "path=", end = " ;";
  const auto at = execStart.find(key);
  if (at == std::string_view::npos) return {};
  const auto rest = execStart.substr(at + key.size());
  return rest.substr(0, rest.find(end));
}

ServiceManager::Failure posixFailure(int code, std::string text) { return {"NSPOSIXErrorDomain", code, std::move(text)}; }

}  // namespace

SystemdServices::Properties SystemdServices::parseShow(std::string_view output) {
  Properties properties;
  for (const auto line : Text::split(output, '\n'))
    if (const auto equals = line.find('='); equals != std::string_view::npos)
      properties.emplace(line.substr(0, equals), line.substr(equals + 1));
  return properties;
}

std::string SystemdServices::render(const Properties& properties) {
  std::string text;
  const auto add = [&](std::string_view key, std::string_view value) {
    if (!value.empty()) text.append(key).append(" = ").append(value).append("\n");
  };
  const auto pid = field(properties, "MainPID"), code = field(properties, "ExecMainCode"), status = field(properties, "ExecMainStatus");
  if (pid != "0") add("pid", pid);
  // The kinds of end that wait(2) knows: 1 returned, 2 killed, 3 killed with a core.
  if (code == "1") add("last exit code", status);
  if (const auto signal = Text::parseInteger(status); (code == "2" || code == "3") && signal)
    add("last exit code", std::to_string(128 + *signal));
  const auto started = field(properties, "ExecMainStartTimestampMonotonic");
  if (const auto restarts = Text::parseInteger(field(properties, "NRestarts")); restarts && !started.empty() && started != "0")
    add("runs", std::to_string(*restarts + 1));
  add("program", programIn(field(properties, "ExecStart")));
  add("path", field(properties, "FragmentPath"));
  add("since", field(properties, "StateChangeTimestamp"));
  return text;
}

SystemdServices::Called SystemdServices::call(std::vector<std::string> words, double patienceSec) const {
  words.insert(words.begin(), "--user");
  // Its errors are told with its output: a person needs both.
  std::vector<std::string> arguments{"-c", "exec \"$0\" \"$@\" 2>&1", options_.systemctl};
  arguments.insert(arguments.end(), words.begin(), words.end());
  try {
    const auto output = Spawn::capture("/bin/sh", arguments, {}, patienceSec);
    if (!output) return {.output = options_.systemctl + " does not answer"};
    return {output->exitStatus, std::string(Text::trim(Text::scrubbed(output->standardOutput)))};
  } catch (const std::system_error& error) {
    return {.output = error.what()};
  }
}

std::optional<ServiceManager::Failure> SystemdServices::tried(std::vector<std::string> words) const {
  const auto called = call(std::move(words), options_.changePatienceSec);
  if (called.status == 0) return std::nullopt;
  // 4: insufficient privilege, as for the init scripts.
  return posixFailure(called.status == 4 ? EACCES : called.status < 0 ? errnoOfUnansweredCall : EIO, called.output);
}

std::optional<SystemdServices::Properties> SystemdServices::show(const std::string& unit) const {
  const auto called = call({"show", shownProperties, "--", unit}, options_.patienceSec);
  if (called.status != 0) return std::nullopt;
  auto properties = parseShow(called.output);
  if (field(properties, "LoadState").empty()) return std::nullopt;
  return properties;
}

std::string SystemdServices::mainUnit(const std::string& label) const {
  for (const auto& file : options_.unitFiles(label))
    if (file.name == label + ".timer") return file.name;
  return label + ".service";
}

ServiceManager::Print SystemdServices::print(const std::string& label) {
  const auto called = call({"show", shownProperties, "--", label + ".service"}, options_.patienceSec);
  if (called.status != 0) return Failed{called.output};
  const auto properties = parseShow(called.output);
  const auto loadState = field(properties, "LoadState");
  if (loadState.empty()) return Failed{called.output};
  if (loadState != "loaded") return NotLoaded{};
  if (field(properties, "ActiveState") == "inactive") {
    const auto unit = mainUnit(label);
    if (unit == label + ".service") return NotLoaded{};
    const auto timer = show(unit);
    if (!timer) return Failed{"no word on " + unit};
    if (field(*timer, "ActiveState") != "active") return NotLoaded{};
  }
  return Printed{render(properties)};
}

std::optional<bool> SystemdServices::isDisabled(const std::string& label) {
  const auto properties = show(mainUnit(label));
  if (!properties) return std::nullopt;
  const auto state = field(*properties, "UnitFileState");
  return state == "masked" || state == "masked-runtime" || state == "disabled" || field(*properties, "LoadState") == "masked";
}

bool SystemdServices::isOnlyNotTurnedOn(const std::string& label) {
  const auto properties = show(mainUnit(label));
  return properties && field(*properties, "UnitFileState") == "disabled" && field(*properties, "LoadState") != "masked";
}

std::optional<ServiceStatus> SystemdServices::status(const std::string& label) {
  const auto files = options_.unitFiles(label);
  if (files.empty()) return ServiceStatus::notFound;
  const auto properties = show(mainUnit(label));
  if (!properties) return std::nullopt;
  for (const auto& file : files)
    if (std::error_code error; !fs::is_regular_file(options_.unitFolder / file.name, error)) return ServiceStatus::notRegistered;
  return field(*properties, "UnitFileState") == "enabled" ? ServiceStatus::enabled : ServiceStatus::notRegistered;
}

std::optional<ServiceManager::Failure> SystemdServices::kickstart(const std::string& label) {
  std::vector<std::string> words{"restart", "--", label + ".service"};
  if (mainUnit(label) != words.back()) words.insert(words.begin() + 1, "--no-block");
  return tried(words);
}

std::optional<ServiceManager::Failure> SystemdServices::bootout(const std::string& label) {
  std::vector<std::string> words{"stop", "--", label + ".service"};
  if (const auto unit = mainUnit(label); unit != words.back()) words.push_back(unit);
  return tried(words);
}

std::optional<ServiceManager::Failure> SystemdServices::registerService(const std::string& label) {
  const auto files = options_.unitFiles(label);
  if (files.empty()) return posixFailure(ENOENT, "no unit for " + label);
  return reinstate(label, files);
}

std::vector<UnitFile> SystemdServices::registrationFiles(const std::string& label) {
  std::vector<UnitFile> files;
  try {
    for (const auto& file : options_.unitFiles(label)) files.push_back({file.name, readFile(options_.unitFolder / file.name)});
  } catch (const std::system_error&) {
    return {};  // half a registration is none
  }
  return files;
}

std::optional<ServiceManager::Failure> SystemdServices::reinstate(const std::string& label, const std::vector<UnitFile>& files) {
  try {
    fs::create_directories(options_.unitFolder);
    for (const auto& file : files) writeFileAtomically(options_.unitFolder / file.name, file.text);
  } catch (const std::system_error& error) {
    unregister(label);
    return posixFailure(error.code().value(), error.what());
  }
  auto failure = tried({"daemon-reload"});
  if (!failure) failure = tried({"enable", "--", mainUnit(label)});
  if (failure) {
    unregister(label);
    return failure;
  }
  // What comes of the start is looked at afterwards: a job that ended at once is registered all the same.
  call({"start", "--", mainUnit(label)}, options_.changePatienceSec);
  return std::nullopt;
}

std::optional<ServiceManager::Failure> SystemdServices::unregister(const std::string& label) {
  bool isThere = false;
  std::error_code error;
  for (const auto& file : options_.unitFiles(label)) isThere |= fs::exists(options_.unitFolder / file.name, error);
  if (!isThere) return std::nullopt;
  // A file that was written and never loaded has nothing to stop.
  if (auto failure = tried({"daemon-reload"})) return failure;
  if (auto failure = bootout(label)) return failure;
  if (auto failure = tried({"disable", "--", mainUnit(label)})) return failure;
  // When a persistent timer last ran is a file too; without it there is nothing to clean, which is no failure.
  if (const auto unit = mainUnit(label); unit != label + ".service")
    call({"clean", "--what=state", "--", unit}, options_.changePatienceSec);
  for (const auto& file : options_.unitFiles(label))
    if (fs::remove(options_.unitFolder / file.name, error); error) return posixFailure(error.value(), error.message());
  if (auto failure = tried({"daemon-reload"})) return failure;
  // A unit that failed stays listed without its file until then; one that did not is no failure.
  for (const auto& file : options_.unitFiles(label)) call({"reset-failed", "--", file.name}, options_.changePatienceSec);
  return std::nullopt;
}

}  // namespace halvo
