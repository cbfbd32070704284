#include "CaptureShared/Provisioning/StreamingWriter.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <memory>
#include <system_error>

#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/Translation.h"
#include "CaptureShared/Provisioning/InstallError.h"

namespace halvo {
namespace {

constexpr std::size_t blockBytes = 1 << 20;
constexpr int ok = 200, partialContent = 206;

std::optional<std::int64_t> wholeNumber(std::string_view text) {
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool isNumber = error == std::errc() && end == text.data() + text.size() && number >= 0;
  return isNumber ? std::optional(number) : std::nullopt;
}

}  // namespace

std::optional<std::int64_t> contentRangeStart(std::string_view value) {
  constexpr std::string_view unit = "bytes ";
  if (!value.starts_with(unit)) return std::nullopt;
  value.remove_prefix(unit.size());
  const auto dash = value.find('-'), slash = value.find('/');
  if (dash == std::string_view::npos || slash == std::string_view::npos || dash > slash) return std::nullopt;
  const auto first = wholeNumber(value.substr(0, dash)), last = wholeNumber(value.substr(dash + 1, slash - dash - 1));
  return first && last && *first <= *last ? first : std::nullopt;
}

StreamingWriter::StreamingWriter(Setup setup, const std::stop_token& stop)
    : setup_(std::move(setup)),
      // O_NOFOLLOW: a link in the file's place would have us write elsewhere.
      handle_(::open(setup_.partial.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600)) {
  const auto& file = setup_.artifact.fileName;
  if (!handle_) throw InstallError::fileSystem(file, tr("couldn't create {}: {}", setup_.partial.string(), errnoText(errno)));
  try {
    const auto block = std::make_unique<char[]>(blockBytes);
    while (const auto count = handle_.readInto({block.get(), blockBytes}, static_cast<std::uint64_t>(written_))) {
      throwIfStopped(stop);
      hasher_.update({block.get(), count});
      written_ += static_cast<std::int64_t>(count);
      if (setup_.onRead) setup_.onRead(written_);
    }
  } catch (const std::system_error& error) {
    throw InstallError::fileSystem(file, tr("couldn't open it to check it: {}", error.code().message()));
  }
  if (::lseek(handle_.fd(), written_, SEEK_SET) < 0)
    throw InstallError::fileSystem(file, tr("couldn't write it: {}", errnoText(errno)));
  lastReported_ = written_;
}

std::optional<std::string> StreamingWriter::rangeHeader() const {
  return written_ > 0 ? std::optional(fmt::format("bytes={}-", written_)) : std::nullopt;
}

bool StreamingWriter::begin(const HTTPResponse& head) {
  const auto& artifact = setup_.artifact;
  if (head.status != ok && head.status != partialContent) throw InstallError::httpStatus(artifact.fileName, head.status);
  const bool goesOn = head.status == partialContent;
  if (goesOn && contentRangeStart(head.header("Content-Range").value_or("")) != written_) return false;
  const auto before = goesOn ? written_ : 0;
  if (const auto length = wholeNumber(Text::trim(head.header("Content-Length").value_or("")))) {
    const auto whole = before + *length;
    if (whole != artifact.bytes) throw InstallError::sizeMismatch(artifact.fileName, artifact.bytes, whole);
  }
  if (goesOn || written_ == 0) return true;
  if (::ftruncate(handle_.fd(), 0) != 0 || ::lseek(handle_.fd(), 0, SEEK_SET) != 0)
    throw InstallError::fileSystem(artifact.fileName, tr("couldn't write it: {}", errnoText(errno)));
  hasher_ = Digest::SHA256();
  written_ = lastReported_ = 0;
  return true;
}

void StreamingWriter::take(std::string_view piece) {
  const auto& artifact = setup_.artifact;
  const auto size = static_cast<std::int64_t>(piece.size());
  if (size > artifact.bytes - written_) {
    ::unlink(setup_.partial.c_str());
    throw InstallError::sizeMismatch(artifact.fileName, artifact.bytes, written_ + size);
  }
  try {
    writeAll(handle_.fd(), piece, setup_.partial);
  } catch (const std::system_error& error) {
    throw InstallError::fileSystem(artifact.fileName, tr("couldn't write it: {}", error.code().message()));
  }
  hasher_.update(piece);
  written_ += size;
  if (written_ - lastReported_ < setup_.granularity) return;
  lastReported_ = written_;
  if (setup_.onWritten) setup_.onWritten(written_);
}

FileIdentity StreamingWriter::finish() {
  const auto& artifact = setup_.artifact;
  // One that ended early may still be the beginning of the right file, so it stays: its digest will tell.
  if (written_ != artifact.bytes) throw InstallError::sizeMismatch(artifact.fileName, artifact.bytes, written_);
  if (hasher_.hex() != artifact.sha256) {
    ::unlink(setup_.partial.c_str());
    throw InstallError::checksumMismatch(artifact.fileName);
  }
  if (::fdatasync(handle_.fd()) != 0)
    throw InstallError::fileSystem(artifact.fileName, tr("couldn't write it: {}", errnoText(errno)));
  return FileIdentity::of(handle_);
}

}  // namespace halvo
