#include "CaptureShared/Foundation/Log.h"

#include <cstdio>

namespace halvo {

LogSink standardLog() {
  return [](const std::string& line) {
    std::fputs((line + "\n").c_str(), stdout);
    std::fflush(stdout);
  };
}

}  // namespace halvo
