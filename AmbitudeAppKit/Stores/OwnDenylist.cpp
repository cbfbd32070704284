#include "AmbitudeAppKit/Stores/OwnDenylist.h"

#include <stdexcept>
#include <system_error>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/Translation.h"
#include "CaptureShared/Foundation/UserFolders.h"

namespace halvo::OwnDenylist {

namespace {

constexpr std::string_view before = "AMBITCAP_DENYLIST=\"", behind = "\"";

}  // namespace

std::filesystem::path file(const Environment& environment) {
  return UserFolders::configDir(environment) / "environment.d/60-halvo.conf";
}

std::optional<std::vector<std::string>> read(const Environment& environment) {
  try {
    const auto text = readFile(file(environment));
    for (auto line : Text::split(text, '\n')) {
      line = Text::trim(line);
      if (!line.starts_with(before) || !line.ends_with(behind) || line.size() < before.size() + behind.size()) continue;
      line.remove_prefix(before.size());
      line.remove_suffix(behind.size());
      return namesIn(std::string(line));
    }
  } catch (const std::system_error&) {
    // None that anything could apply.
  }
  return std::nullopt;
}

void write(const std::vector<std::string>& names, const Environment& environment) {
  const auto path = file(environment);
  if (names.empty()) {
    std::filesystem::remove(path);
    return;
  }
  for (const auto& name : names)
    if (name.find_first_of("\"\\$,\n") != std::string::npos) throw std::invalid_argument(tr("this name can't be kept: {}", name));
  std::filesystem::create_directories(path.parent_path());
  writeFileAtomically(path, std::string(before) + Text::join(names, ",") + std::string(behind) + "\n");
}

std::vector<std::string> namesIn(const std::string& typed) {
  std::vector<std::string> names;
  const auto lines = Text::replaceAll(typed, ",", "\n");
  for (const auto line : Text::split(lines, '\n'))
    if (!Text::isBlank(line)) names.emplace_back(Text::trim(line));
  return names;
}

}  // namespace halvo::OwnDenylist
