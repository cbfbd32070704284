#include "CaptureShared/Provisioning/ModelsFolderLock.h"

#include <sys/file.h>

namespace halvo {

ModelsFolderLock::ModelsFolderLock(const std::filesystem::path& directory)
    : folder_(FileHandle::openForRead(directory)), isHeld_(::flock(folder_.fd(), LOCK_EX | LOCK_NB) == 0) {}

}  // namespace halvo
