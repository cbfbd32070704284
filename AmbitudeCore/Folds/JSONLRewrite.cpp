#include "AmbitudeCore/Folds/JSONLRewrite.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "AmbitudeCore/Folds/RewriteError.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::JSONLRewrite {

std::size_t apply(const std::filesystem::path& file, const Edit& edit, const std::filesystem::path& scratch) {
  const auto bytes = readFile(file);
  std::string kept;
  std::size_t changed = 0;
  for (const auto line : Text::split(bytes, '\n')) {
    if (line.empty()) continue;
    const auto now = edit(line);
    changed += now != line;
    if (now) kept += *now + "\n";
  }
  if (changed > 0) replace(file, kept, scratch);
  return changed;
}

void replace(const std::filesystem::path& file, std::string_view bytes, const std::filesystem::path& scratch) {
  try {
    writeFileAtomically(scratch.empty() ? file : scratch, bytes);
    if (scratch.empty() || ::rename(scratch.c_str(), file.c_str()) == 0) return;
  } catch (const std::system_error& error) {
    throw RewriteError::renameFailed(error.code().value());
  }
  const int code = errno;
  ::unlink(scratch.c_str());
  throw RewriteError::renameFailed(code);
}

}  // namespace halvo::JSONLRewrite
