#include "CaptureShared/Foundation/CoreDumps.h"

#include <sys/prctl.h>
#include <sys/resource.h>

namespace halvo {

void turnCoreDumpsOff() {
  const rlimit none{0, 0};
  ::setrlimit(RLIMIT_CORE, &none);
  // A handler that the kernel pipes a dump into does not ask the limit.
  ::prctl(PR_SET_DUMPABLE, 0);
}

}  // namespace halvo
