#include "CaptureShared/Recording/Supervision/RecordingControlsWatch.h"

#include <system_error>

namespace halvo {

RecordingControls RecordingControlsWatch::look(const std::filesystem::path& dataRoot) {
  std::optional<FileIdentity> identity;
  try {
    identity = FileIdentity::of(RecordingControls::path(dataRoot));
  } catch (const std::system_error&) {
    // Absent, or closed to us: reading it says which.
  }
  if (identity && known_ && root_ == dataRoot && known_->first == *identity) return known_->second;
  const auto controls = RecordingControls::read(dataRoot);
  root_ = dataRoot;
  known_.reset();
  // What can't be read may be mended without a change of its time.
  if (identity && !controls.isUnreadable) known_ = {*identity, controls};
  return controls;
}

}  // namespace halvo
