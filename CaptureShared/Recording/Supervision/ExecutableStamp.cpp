#include "CaptureShared/Recording/Supervision/ExecutableStamp.h"

#include <system_error>

#include <fmt/format.h>

#include "CaptureShared/Foundation/FileHandle.h"

namespace halvo {

std::string ExecutableStamp::description() const { return fmt::format("inode {}, mtime {}ns, size {}", inode, modifiedNanoseconds, size); }

std::optional<ExecutableStamp> ExecutableStamp::of(const std::filesystem::path& executable) {
  try {
    const auto identity = FileIdentity::of(executable);
    return ExecutableStamp{.inode = identity.inode, .modifiedNanoseconds = identity.mtimeNs, .size = identity.size};
  } catch (const std::system_error&) {
    return std::nullopt;
  }
}

}  // namespace halvo
