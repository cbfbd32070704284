#pragma once

#include <cstdlib>
#include <map>
#include <optional>
#include <string>

#include "CaptureShared/DataRoot/DataPaths.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo::test {

/// A home folder of the test's own: HOME points at it, nothing else is configured, and all is as before when it goes.
class Home {
 public:
  Home() {
    set("HOME", folder_.path().string());
    set("AMBITCAP_DATA_ROOT", {});
    set("AMBITCHECK_TASK_FILE", {});
  }
  ~Home() {
    for (const auto& [key, value] : before_) put(key, value);
    DataPaths::overrideConfigURL({});
  }

  /// Sets or removes a variable until the end of the test.
  void set(const std::string& key, const std::optional<std::string>& value) {
    const char* now = std::getenv(key.c_str());
    before_.try_emplace(key, now ? std::optional<std::string>(now) : std::nullopt);
    put(key, value);
    DataPaths::invalidateConfigCache();
  }
  std::filesystem::path path() const { return folder_.path(); }
  std::filesystem::path supportDir() const { return path() / "Library/Application Support/AmbitCapture"; }
  std::filesystem::path config() const { return supportDir() / "config.json"; }
  /// Writes a file under the home folder.
  void write(const std::filesystem::path& file, const std::string& text) const { folder_.write(file, text); }
  void writeConfig(const std::string& text) const {
    write("Library/Application Support/AmbitCapture/config.json", text);
    DataPaths::invalidateConfigCache();
  }
  /// Makes a data root and configures it through the environment.
  std::filesystem::path makeRoot() {
    const auto root = path() / "root";
    std::filesystem::create_directories(root / "io-layer");
    set("AMBITCAP_DATA_ROOT", root.string());
    return root;
  }

 private:
  static void put(const std::string& key, const std::optional<std::string>& value) {
    value ? ::setenv(key.c_str(), value->c_str(), 1) : ::unsetenv(key.c_str());
  }
  TemporaryFolder folder_;
  std::map<std::string, std::optional<std::string>> before_;
};

}  // namespace halvo::test
