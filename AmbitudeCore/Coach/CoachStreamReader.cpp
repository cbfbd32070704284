#include "AmbitudeCore/Coach/CoachStreamReader.h"

#include <algorithm>
#include <system_error>

namespace halvo {

namespace {

constexpr std::uint64_t firstLookBytes = 512;  // an ordinary first delta is a fraction of this
constexpr std::uint64_t pieceBytes = 1 << 16;

}  // namespace

void CoachStreamReader::restart() {
  offset_ = 0;
  pending_ = {};
  state_ = {};
}

std::string CoachStreamReader::readAt(const FileHandle& file, std::uint64_t from, std::uint64_t size) {
  auto bytes = file.readAt(from, size);
  bytesRead_ += bytes.size();
  return bytes;
}

bool CoachStreamReader::wasBegunAnew(const FileHandle& file) {
  if (offset_ == 0) return false;
  // Nothing was understood yet, so nothing is lost by reading it again.
  if (state_.turnID.empty()) return true;
  std::string line;
  for (auto size = firstLookBytes; line.find('\n') == std::string::npos; size = pieceBytes) {
    const auto more = readAt(file, line.size(), size);
    if (more.empty()) return true;
    line += more;
  }
  const auto first = CoachStreamDelta::decode(std::string_view(line).substr(0, line.find('\n')));
  return first && first->turnID != state_.turnID;
}

const CoachStreamState& CoachStreamReader::consume(const std::filesystem::path& at) {
  try {
    const auto now = FileIdentity::of(at);
    if (seen_ == now) return state_;
    const auto file = FileHandle::openForRead(at);
    const bool isAnother = seen_ && (seen_->inode != now.inode || seen_->device != now.device);
    if (isAnother || static_cast<std::uint64_t>(now.size) < offset_ || wasBegunAnew(file)) restart();
    const auto end = static_cast<std::uint64_t>(now.size);
    while (offset_ < end) {
      const auto piece = readAt(file, offset_, std::min(end - offset_, pieceBytes));
      if (piece.empty()) break;  // wiped under the read: the next look sees it
      offset_ += piece.size();
      pending_.feed(piece, [&](std::string_view line) {
        if (const auto delta = CoachStreamDelta::decode(line)) state_.add(*delta);
      });
    }
    seen_ = now;
  } catch (const std::system_error& error) {
    if (error.code() == std::errc::no_such_file_or_directory) {
      restart();
      seen_.reset();
    }
  }
  return state_;
}

}  // namespace halvo
