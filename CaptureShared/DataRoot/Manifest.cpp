#include "CaptureShared/DataRoot/Manifest.h"

#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/JSONValue.h"

namespace halvo {

Manifest::Manifest(double fps, double keyframeSec, int widthTarget)
    : dataRoot(DataPaths::dataRoot().string()),
      captureFps(fps),
      keyframeIntervalSec(keyframeSec),
      displayWidthTarget(widthTarget),
      startedAt(ISO8601::utcSeconds(Clock::system().nowMs())) {}

void Manifest::write() const {
  const JSONObject manifest{{"schemaVersion", schemaVersion},
                            {"dataRoot", dataRoot},
                            {"captureFps", captureFps},
                            {"keyframeIntervalSec", keyframeIntervalSec},
                            {"displayWidthTarget", displayWidthTarget},
                            {"startedAt", startedAt}};
  writeFileAtomically(DataPaths::manifestPath(), JSONValue(manifest).dumpPretty() + "\n");
}

}  // namespace halvo
