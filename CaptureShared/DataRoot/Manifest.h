#pragma once

#include <string>

namespace halvo {

/// `manifest.json`: what a capture run was started with.
struct Manifest {
  int schemaVersion = 1;
  std::string dataRoot;        ///< path of the resolved root
  double captureFps = 0;       ///< frames per second
  double keyframeIntervalSec = 0;
  int displayWidthTarget = 0;  ///< pixels
  std::string startedAt;       ///< ISO 8601, the time of construction

  Manifest(double captureFps, double keyframeIntervalSec, int displayWidthTarget);

  /// Replaces the file under the data root. Throws `std::system_error`.
  void write() const;
};

}  // namespace halvo
