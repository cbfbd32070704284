#include "CaptureShared/Recording/Retention/RetentionSettingsStore.h"

#include <cerrno>
#include <cmath>
#include <system_error>

#include <fcntl.h>
#include <sys/file.h>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Foundation/Translation.h"
#include "CaptureShared/Foundation/UserFolders.h"

namespace halvo::RetentionSettingsStore {

namespace {

/// Reads members and remembers whether each had the right type. A missing one and null read as absent.
class Reader {
 public:
  explicit Reader(const JSONObject& object) : object_(object) {}

  std::optional<std::int64_t> integer(std::string_view key) {
    const auto* value = given(key);
    if (!value) return std::nullopt;
    const auto number = value->numberValue();
    const auto whole = number && std::trunc(*number) == *number ? object_.integer(key) : std::nullopt;
    isSound = isSound && whole;
    return whole;
  }
  std::optional<bool> boolean(std::string_view key) {
    const auto* value = given(key);
    if (!value) return std::nullopt;
    isSound = isSound && value->boolValue();
    return value->boolValue();
  }
  const JSONObject* object(std::string_view key) {
    const auto* value = given(key);
    if (!value) return nullptr;
    isSound = isSound && value->objectValue();
    return value->objectValue();
  }

  bool isSound = true;

 private:
  const JSONValue* given(std::string_view key) const {
    const auto* value = object_.find(key);
    return value && !value->isNull() ? value : nullptr;
  }
  const JSONObject& object_;
};

/// A narrower protection than none was surely not meant.
std::int64_t hours(std::optional<std::int64_t> given, std::int64_t otherwise) { return given && *given >= 0 ? *given : otherwise; }

/// The file's text; absent when there is none. Throws `std::system_error`.
std::optional<std::string> textOf(const fs::path& file) {
  try {
    return readFile(file);
  } catch (const std::system_error& error) {
    if (error.code() == std::errc::no_such_file_or_directory) return std::nullopt;
    throw;
  }
}

std::string damagedText(const fs::path& file) {
  return tr("{} can't be read as settings, so retention is off until it is mended or removed", file.string());
}

/// Held until it goes. The settings file itself is replaced by each write.
FileHandle lockBeside(const fs::path& file) {
  const auto name = file.string() + ".lock";
  FileHandle lock(::open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
  int failed = lock ? ::flock(lock.fd(), LOCK_EX) : -1;
  while (lock && failed != 0 && errno == EINTR) failed = ::flock(lock.fd(), LOCK_EX);
  if (failed != 0) throw std::system_error(errno, std::generic_category(), name);
  return lock;
}

}  // namespace

fs::path path(const Environment& environment) { return UserFolders::supportDir(environment) / "retention.json"; }

std::optional<RetentionSettings> decode(std::string_view text) {
  const auto json = JSONValue::parse(text);
  if (!json || !json->objectValue()) return std::nullopt;
  Reader reader(*json->objectValue());
  RetentionSettings settings;
  if (const auto* policy = reader.object("policy")) {
    Reader inner(*policy);
    if (const auto days = inner.integer("days"); days && *days >= 0) settings.policy = VideoRetention::DeleteOlderThanDays{*days};
    reader.isSound = reader.isSound && inner.isSound;
  }
  settings.deleteOnRestart = reader.boolean("deleteOnRestart").value_or(false);
  settings.lastRestartSweepBootMs = reader.integer("lastRestartSweepBootMs");
  settings.labelLookbackHours = hours(reader.integer("labelLookbackHours"), RetentionSettings::defaultLabelLookbackHours);
  settings.labelLookaheadHours = hours(reader.integer("labelLookaheadHours"), RetentionSettings::defaultLabelLookaheadHours);
  return reader.isSound ? std::optional(settings) : std::nullopt;
}

std::string encode(const RetentionSettings& settings) {
  JSONObject policy;
  if (const auto days = VideoRetention::days(settings.policy)) policy.set("days", *days);
  JSONObject object{{"policy", std::move(policy)},
                    {"deleteOnRestart", settings.deleteOnRestart},
                    {"labelLookbackHours", settings.labelLookbackHours},
                    {"labelLookaheadHours", settings.labelLookaheadHours}};
  if (settings.lastRestartSweepBootMs) object.set("lastRestartSweepBootMs", *settings.lastRestartSweepBootMs);
  return JSONValue(std::move(object)).dumpPretty() + "\n";
}

RetentionSettings read(const fs::path& from) {
  try {
    const auto text = textOf(from);
    return (text ? decode(*text) : std::nullopt).value_or(RetentionSettings{});
  } catch (const std::system_error&) {
    return {};
  }
}

std::optional<std::string> damage(const fs::path& file) {
  try {
    const auto text = textOf(file);
    return text && !decode(*text) ? std::optional(damagedText(file)) : std::nullopt;
  } catch (const std::system_error&) {
    return damagedText(file);
  }
}

void write(const RetentionSettings& settings, const fs::path& to) {
  fs::create_directories(to.parent_path());
  writeFileAtomically(to, encode(settings));
}

RetentionSettings change(const fs::path& file, const Change& how) {
  fs::create_directories(file.parent_path());
  const auto lock = lockBeside(file);
  const auto before = decode(textOf(file).value_or("{}"));
  if (!before) throw Damaged(damagedText(file));
  auto settings = *before;
  how(settings);
  if (settings != *before) write(settings, file);
  return settings;
}

}  // namespace halvo::RetentionSettingsStore
