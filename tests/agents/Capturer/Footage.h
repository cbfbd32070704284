#pragma once

#include <fstream>
#include <sstream>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Recording/FFmpegRun.h"
#include "CaptureShared/Recording/Location/FrameLocator.h"
#include "CaptureShared/Recording/VideoEncryptionFormat.h"
#include "CaptureShared/Recording/VideoStreamDecryptor.h"
#include "Platform/Linux/PNGWriter.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo::test {

/// What was recorded of a display under a data root, read as any reader would.
class Footage {
 public:
  struct Of {
    int display = 0;
    std::int64_t birthsLaterMs = 0;  ///< from when the files were made to the recorder's clock then
  };
  explicit Footage(const std::filesystem::path& root, SymmetricKey key = Footage::key()) : Footage(root, key, Of{}) {}
  Footage(const std::filesystem::path& root, SymmetricKey key, Of of) : root_(root), key_(key), of_(of) {}
  static SymmetricKey key() {
    std::array<char, SymmetricKey::size> bytes;
    bytes.fill('k');
    return SymmetricKey(bytes);
  }

  std::vector<std::filesystem::path> files(const std::string& extension = ".mkv") const {
    std::vector<std::filesystem::path> found;
    for (const auto& item : std::filesystem::directory_iterator(folder()))
      if (item.path().extension() == extension) found.push_back(item.path());
    return found;
  }
  std::size_t sessions() const { return files(".csv").size() - 1; }
  std::vector<FrameLocator::SidecarRow> rows() const {
    std::vector<FrameLocator::SidecarRow> found;
    std::ifstream file(folder() / "frame_timestamps.csv");
    for (std::string line; std::getline(file, line) && !file.eof();)
      if (const auto row = FrameLocator::SidecarRow::parse(line)) found.push_back(*row);
    return found;
  }
  /// Frames in all the files, counted by a reader of their plain streams; a file that it can't read throws.
  int frames() const {
    int count = 0;
    for (const auto& file : files())
      if (std::filesystem::file_size(file) >= 4096)  // a smaller one has no frame yet
        for (const char byte : convert(file, {}, {"-f", "framecrc"})) count += byte == '\n';
    return count;
  }
  struct Picture : PNGWriter::RGBImage {
    int at(std::uint32_t x, std::uint32_t y) const { return pixels[(y * width + x) * 3 + 1]; }
  };
  /// The frame that a row leads to, as PNG; throws when it leads nowhere.
  std::string png(const FrameLocator::SidecarRow& row) const {
    auto ops = FrameLocator::DirectoryListingCache::Ops::real();
    ops.list = [list = ops.list, this](const std::filesystem::path& at) {
      auto entries = list(at);
      for (auto& entry : entries) entry.birthMs += of_.birthsLaterMs;
      return entries;
    };
    FrameLocator::DirectoryListingCache cache(ops);
    const auto located =
        FrameLocator::locate({.atMs = row.realTsMs, .display = of_.display, .toleranceMs = 0, .root = root_, .cache = cache});
    if (!located) throw std::runtime_error("a row that leads nowhere");
    const auto fromSec = std::max(0.0, located->seekSec() - 0.25);
    return convert(located->file, {"-ss", std::to_string(fromSec)}, {"-frames:v", "1", "-c:v", "png", "-f", "image2", "-update", "1"});
  }
  Picture picture(std::size_t row) const { return {PNGWriter::decode(png(rows().at(row)))}; }

 private:
  std::filesystem::path folder() const { return root_ / "video" / ("display-" + std::to_string(of_.display)); }
  std::string convert(const std::filesystem::path& recording, std::vector<std::string> before, const std::vector<std::string>& after) const {
    const auto output = scratch_.path() / "out";
    std::filesystem::remove(output);
    const auto file = FileHandle::openForRead(recording);
    VideoStreamDecryptor decryptor(key_, file.fd());
    std::vector<std::string> words{"-nostdin", "-v", "error"};
    words.insert(words.end(), before.begin(), before.end());
    words.insert(words.end(), {"-f", "matroska", "-i", "pipe:0"});
    words.insert(words.end(), after.begin(), after.end());
    words.push_back(output.string());
    const auto outcome = FFmpegRun::run("/usr/bin/ffmpeg", words, [&] { return decryptor.readChunk(); });
    if (outcome.exitStatus != 0 || !outcome.standardError.empty()) throw std::runtime_error(outcome.standardError);
    auto text = readFile(output);
    return after.back() == "framecrc" ? text.substr(text.rfind("\n#") == std::string::npos ? 0 : text.find('\n', text.rfind("\n#") + 1) + 1) : text;
  }

  std::filesystem::path root_;
  SymmetricKey key_;
  Of of_;
  TemporaryFolder scratch_;
};

}  // namespace halvo::test
