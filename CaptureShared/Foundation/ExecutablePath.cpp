#include "CaptureShared/Foundation/ExecutablePath.h"

#include <string_view>

#include <unistd.h>

namespace halvo::ExecutablePath {
namespace {

std::filesystem::path readSelf() {
  auto self = std::filesystem::read_symlink("/proc/self/exe");
  constexpr std::string_view mark = " (deleted)";  // the kernel's note on a file that was replaced before anybody asked
  const auto& text = self.native();
  if (text.ends_with(mark) && !std::filesystem::exists(self)) return text.substr(0, text.size() - mark.size());
  return self;
}

}  // namespace

const std::filesystem::path& resolveSelf() {
  static const auto self = readSelf();
  return self;
}

std::filesystem::path siblingDirectory(const std::filesystem::path& of) { return of.parent_path(); }

bool isExecutableFile(const std::filesystem::path& file) {
  std::error_code ignored;
  return std::filesystem::is_regular_file(file, ignored) && ::access(file.c_str(), X_OK) == 0;
}

}  // namespace halvo::ExecutablePath
