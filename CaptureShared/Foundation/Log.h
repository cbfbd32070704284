#pragma once

#include <functional>
#include <string>

namespace halvo {

/// Where a part's log lines go: one call a line, without a newline. An empty function drops them.
using LogSink = std::function<void(const std::string&)>;

/// Standard output, line by line, flushed at once: an agent's log.
LogSink standardLog();

}  // namespace halvo
