#include "agents/Capturer/HourFile.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include <fmt/format.h>

#include "CaptureShared/Recording/Supervision/CapturerExit.h"
#include "CaptureShared/Recording/VideoEncryptionError.h"
#include "agents/Capturer/CaptureEnd.h"

namespace halvo {
namespace {

/// A file below 4,096 bytes counts as one without frames, and the first frames of an empty screen are smaller.
constexpr std::size_t paddingBytes = 4096;
constexpr int mostParts = 10'000;

/// Every failure becomes the end of the recording.
template <class F>
auto asCaptureEnd(F&& body) -> decltype(body()) {
  try {
    return body();
  } catch (const std::system_error& error) {
    throw CaptureEnd::ofWrite(error);
  } catch (const CaptureEnd&) {
    throw;
  } catch (const std::runtime_error& error) {
    throw CaptureEnd(CapturerExit::videoSinkFailed, error.what());
  }
}

std::filesystem::path nameOf(const HourFile::Setup& setup, int part) {
  return setup.folder / (part == 1 ? setup.hourPrefix + ".mkv" : fmt::format("{}.part{}.mkv", setup.hourPrefix, part));
}

FileHandle made(const HourFile::Setup& setup, std::filesystem::path& path) {
  return asCaptureEnd([&] {
    for (int part = 1; part <= mostParts; ++part) {
      path = nameOf(setup, part);
      FileHandle file(::open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_NOFOLLOW | O_CLOEXEC, 0600));
      if (file) return file;
      if (errno != EEXIST) break;
    }
    throw std::system_error(errno, std::generic_category(), path.string());
  });
}

/// A failure takes the file that was just made away again: no frame is in it.
template <class F>
auto orRemoved(const std::filesystem::path& file, F&& body) -> decltype(body()) {
  try {
    return asCaptureEnd(body);
  } catch (...) {
    ::unlink(file.c_str());
    throw;
  }
}

CaptureEnd ofStart(const std::system_error& error) {
  const bool isGone = error.code() == std::errc::no_such_file_or_directory || error.code() == std::errc::permission_denied;
  return isGone ? CaptureEnd(CapturerExit::ffmpegMissing, error.what()) : CaptureEnd::ofWrite(error);
}

}  // namespace

HourFile::HourFile(const Setup& setup)
    : size_(FrameEncoder::encodedSize({setup.width, setup.height}, setup.widthTarget)),
      file_(made(setup, path_)),
      encryptor_(orRemoved(path_, [&] {
        return VideoStreamEncryptor({.key = setup.key, .generation = setup.generation, .output = file_.fd()});
      })),
      encoder_(orRemoved(path_, [&] {
        try {
          return FrameEncoder({.ffmpeg = setup.ffmpeg, .width = setup.width, .height = setup.height, .widthTarget = setup.widthTarget,
                               .sink = [this](std::string_view bytes) { take(bytes); }});
        } catch (const std::system_error& error) {
          throw ofStart(error);
        }
      })) {}

void HourFile::take(std::string_view bytes) {
  pieces_.feed(bytes);
  std::int64_t frames = 0;
  whole_.clear();
  while (const auto piece = pieces_.next()) {
    if (piece->isCluster && !std::exchange(hasBegun_, true)) whole_ += MatroskaPieces::padding(paddingBytes);
    whole_ += piece->bytes;
    frames += piece->isCluster;
  }
  encryptor_.write(whole_);
  framesOnDisk_ += frames;
}

void HourFile::feed(std::span<const std::uint8_t> picture) {
  asCaptureEnd([&] { encoder_.feed(picture); });
}
void HourFile::pump() {
  asCaptureEnd([&] { encoder_.pump(); });
}
void HourFile::finish(std::chrono::steady_clock::time_point deadline) {
  asCaptureEnd([&] { encoder_.finish(deadline); });
}

}  // namespace halvo
