#include <gtest/gtest.h>

#include <optional>

#include "CaptureShared/Recording/LittleEndian.h"
#include "CaptureShared/Recording/VideoEncryptionError.h"
#include "tests/CaptureShared/Recording/Recordings.h"
#include "tests/support/SmallDisk.h"

namespace halvo {
namespace {

using Kind = VideoEncryptionError::Kind;

std::string le32(std::uint32_t number) {
  const auto bytes = LittleEndian::bytes(number);
  return {bytes.begin(), bytes.end()};
}

struct Reading {
  std::optional<Kind> error = {};
  std::string plaintext = {};  ///< up to the error
  bool operator==(const Reading&) const = default;
};

class VideoStream : public testing::Test {
 protected:
  VideoStream() { test::seal(file_, {"first", "the second", "third!"}, 7), sealed_ = readFile(file_); }

  Reading read(const std::string& bytes, char key = 'k') const {
    folder_.write("read", bytes);
    const auto input = FileHandle::openForRead(folder_.path() / "read");
    Reading reading;
    try {
      VideoStreamDecryptor decryptor(test::keyOf(key), input.fd());
      while (const auto chunk = decryptor.readChunk()) reading.plaintext += *chunk;
    } catch (const VideoEncryptionError& error) {
      reading.error = error.kind();
    }
    return reading;
  }

  test::TemporaryFolder folder_;
  const std::filesystem::path file_ = folder_.path() / "sealed";
  std::string sealed_;
  const std::string plain_ = "firstthe secondthird!";
  static constexpr std::size_t firstEnd = 12 + 4 + 28 + 5, secondEnd = firstEnd + 4 + 28 + 10;
};

TEST_F(VideoStream, readsWhatItCan) {
  const auto header = "HALVOVE2" + le32(7);
  const auto first = sealed_.substr(12, firstEnd - 12), second = sealed_.substr(firstEnd, secondEnd - firstEnd);
  // Test case 14 of the GCM proposal: a key, a nonce and a plaintext of zeros.
  const std::string zeros(16, '\0'), known = le32(44) + std::string(12, '\0') +
                    "\xce\xa7\x40\x3d\x4d\x60\x6b\x6e\x07\x4e\xc5\xd3\xba\xf3\x9d\x18\xd0\xd1\xc8\xa7\x99\x99\x6b\xf0\x26\x5b\x98\xb5\xd4\x8a\xb9\x19";
  const struct { const char* name; std::string bytes; Reading want; char key = 'k'; } cases[] = {
      {"version 1, as others seal it", "HALVOVE1" + known, {{}, zeros}, '\0'},
      {"version 2, as others seal it", header + known, {{}, zeros}, '\0'},
      {"seven bytes", "HALVOVE", {Kind::notEncrypted}},
      {"eight others", "HALVOVE3", {Kind::notEncrypted}},
      {"the magic alone", "HALVOVE2", {}},
      {"the header alone", header, {}},
      {"a length of nothing", header + first + le32(0), {Kind::corruptChunk, "first"}},
      {"too short for a box", header + le32(27) + std::string(27, 'x'), {Kind::corruptChunk}},
      {"too short for a box, and cut", header + le32(27) + std::string(26, 'x'), {}},
      {"the longest believed", header + le32(1'048'640) + std::string(1'048'640, 'x'), {Kind::authenticationFailed}},
      {"longer than believed", header + le32(1'048'641), {Kind::corruptChunk}},
      {"another key", sealed_, {Kind::authenticationFailed}, 'w'},
      {"another generation", "HALVOVE2" + le32(9) + first, {{}, "first"}},
      {"chunks are not bound to their places", header + second + first, {{}, "the secondfirst"}}};
  for (const auto& c : cases) EXPECT_EQ(read(c.bytes, c.key), c.want) << c.name;
  EXPECT_EQ(sealed_.substr(0, 16), header + le32(33));
  EXPECT_NE(sealed_.substr(16, 12), sealed_.substr(firstEnd + 4, 12)) << "one nonce twice";
}

TEST_F(VideoStream, cutsChunksByTheWrite) {
  const struct { std::size_t written; std::vector<std::uint32_t> lengths; } cases[] = {
      {0, {}}, {1, {29}}, {1'048'576, {1'048'604}}, {1'048'577, {1'048'604, 29}}};
  for (const auto& c : cases) {
    test::seal(file_, {std::string(c.written, 'x')});
    const auto bytes = readFile(file_);
    std::size_t at = 12;
    for (const auto length : c.lengths) {
      EXPECT_EQ(bytes.substr(at, 4), le32(length));
      at += 4 + length;
    }
    EXPECT_EQ(bytes.size(), at);
    EXPECT_EQ(read(bytes), (Reading{{}, std::string(c.written, 'x')}));
  }
}

TEST_F(VideoStream, losesOnlyTheChunkThatACutOrAFlippedBitHit) {
  for (std::size_t size = 8; size <= sealed_.size(); ++size)
    EXPECT_EQ(read(sealed_.substr(0, size)),
              (Reading{{}, plain_.substr(0, size == sealed_.size() ? 21 : size >= secondEnd ? 15 : size >= firstEnd ? 5 : 0)})) << size;
  for (std::size_t at = firstEnd; at < secondEnd; ++at) {
    auto bytes = sealed_;
    bytes[at] = static_cast<char>(bytes[at] ^ 1 << at % 8);
    const auto reading = read(bytes);
    EXPECT_EQ(reading.plaintext, "first") << at;  // a length gone wrong may also look like a cut
    EXPECT_TRUE(at < firstEnd + 4 || reading.error == Kind::authenticationFailed) << at;
  }
}

TEST_F(VideoStream, keepsWhatWasWholeWhenTheDiskIsFull) {
  const test::SmallDisk disk;
  ASSERT_TRUE(disk.isThere());
  const auto output = test::create(disk.path() / "hour.mkv");
  VideoStreamEncryptor encryptor({.key = test::keyOf('k'), .generation = 1, .output = output.fd()});
  encryptor.write("kept");
  EXPECT_THROW(encryptor.write(std::string(100'000, 'x')), std::system_error);
  const auto bytes = readFile(disk.path() / "hour.mkv");
  EXPECT_EQ(read(bytes), (Reading{{}, "kept"}));
  // Behind half a chunk nothing would be found again, were there room again.
  ASSERT_EQ(::ftruncate(output.fd(), 100), 0);
  EXPECT_THROW(encryptor.write("x"), std::system_error);
}

}  // namespace
}  // namespace halvo
