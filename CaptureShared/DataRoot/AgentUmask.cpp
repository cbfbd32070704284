#include "CaptureShared/DataRoot/AgentUmask.h"

#include <sys/stat.h>

mode_t halvo::AgentUmask::apply() { return ::umask(077); }
