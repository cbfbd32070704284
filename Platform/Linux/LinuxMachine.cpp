#include "Platform/Linux/LinuxMachine.h"

#include <sys/statvfs.h>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo {
namespace {

std::optional<std::string> contents(const std::filesystem::path& file) {
  try {
    return readFile(file);
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

}  // namespace

std::optional<std::int64_t> LinuxMachine::bootTimeMs() const {
  const auto stat = contents(root_ / "proc" / "stat");
  if (!stat) return std::nullopt;
  constexpr std::string_view key = "btime ";
  for (const auto line : Text::split(*stat, '\n'))
    if (line.starts_with(key)) {
      const auto seconds = Text::parseInteger(line.substr(key.size()));
      return seconds ? std::optional(*seconds * 1000) : std::nullopt;
    }
  return std::nullopt;
}

std::optional<std::string> LinuxMachine::identity() const {
  const auto text = contents(root_ / "etc" / "machine-id");
  if (!text || Text::isBlank(*text)) return std::nullopt;
  return std::string(Text::trim(*text));
}

std::optional<std::uint64_t> LinuxMachine::freeBytes(const std::filesystem::path& path) const {
  struct statvfs volume = {};
  if (::statvfs(path.c_str(), &volume) != 0) return std::nullopt;
  return static_cast<std::uint64_t>(volume.f_bavail) * volume.f_frsize;
}

std::optional<std::uint64_t> LinuxMachine::physicalMemoryBytes() const {
  const auto info = contents(root_ / "proc" / "meminfo");
  if (!info) return std::nullopt;
  constexpr std::string_view key = "MemTotal:", unit = "kB";
  constexpr std::uint64_t kibPerGiB = 1 << 20;
  for (const auto line : Text::split(*info, '\n')) {
    if (!line.starts_with(key) || !line.ends_with(unit)) continue;
    const auto kib = Text::parseInteger(line.substr(key.size(), line.size() - key.size() - unit.size()));
    if (!kib || *kib <= 0) return std::nullopt;
    return (static_cast<std::uint64_t>(*kib) + kibPerGiB - 1) / kibPerGiB << 30;
  }
  return std::nullopt;
}

}  // namespace halvo
