#include <gtest/gtest.h>

#include <csignal>

#include <sys/wait.h>
#include <unistd.h>

#include "CaptureShared/Recording/VideoDecryption.h"
#include "tests/CaptureShared/Recording/Recordings.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;
using VideoDecryption::WithDecryptedFileError;

class WithDecryptedFile : public testing::Test {
 protected:
  WithDecryptedFile() { test::seal(file_, {"one", "two"}, 4); }

  template <class Perform>
  auto with(Perform perform) {
    return VideoDecryption::withDecryptedFile({.at = file_, .keyForGeneration = keys_, .environment = environment_}, perform);
  }
  std::string failure() {
    try {
      with([](const fs::path&) { ADD_FAILURE() << "lent"; });
    } catch (const WithDecryptedFileError& error) {
      return error.what();
    }
    return "none";
  }
  long copies() const { return std::distance(fs::directory_iterator(folder_), {}); }

  test::TemporaryFolder temp_;
  const fs::path file_ = temp_.path() / "07.mkv", folder_ = temp_.path() / "halvo-video-decrypt";
  const Environment environment_{{"TMPDIR", temp_.path().string()}};
  std::vector<std::optional<std::uint32_t>> asked_;
  VideoDecryption::KeyForGeneration keys_ = [this](auto generation) { return asked_.push_back(generation), test::keyOf('k'); };
};

TEST_F(WithDecryptedFile, lendsAPrivateCopyForAsLongAsTheWorkLasts) {
  EXPECT_EQ(with([&](const fs::path& copy) {
              EXPECT_EQ(fs::status(copy).permissions(), fs::perms(0600));
              EXPECT_EQ(fs::status(folder_).permissions(), fs::perms(0700));
              EXPECT_EQ(copy.parent_path(), folder_);
              return readFile(copy) + copy.extension().string();
            }),
            "onetwo.mkv");
  EXPECT_EQ(copies(), 0);
  for (const std::string bytes : {"HALVOVE1", "HALVOVE2\1.", "HALVOVE2\2..\xff"}) temp_.write("07.mkv", bytes), with([](const fs::path&) {});
  for (const std::string bytes : {"plain", "HALVOVE", "HALVOVE3"}) {
    temp_.write("07.mkv", bytes);
    EXPECT_EQ(with([](const fs::path& path) { return path; }), file_);
  }
  EXPECT_EQ(asked_, (std::vector<std::optional<std::uint32_t>>{4, std::nullopt, std::nullopt, 0xff2e2e02}));
}

TEST_F(WithDecryptedFile, leavesNoCopyWhateverHappens) {
  EXPECT_THROW(with([](const fs::path&) { throw std::logic_error("the caller's own"); }), std::logic_error);
  EXPECT_EQ(copies(), 0);
  fs::resize_file(file_, 12 + 4 + 28 + 3);
  { std::ofstream(file_, std::ios::app | std::ios::binary) << std::string("\x1c\0\0\0", 4) << std::string(28, 'x'); }
  EXPECT_EQ(failure(), "decrypting video failed: chunk failed AES-GCM authentication — wrong key, or the file was tampered with");
  EXPECT_EQ(copies(), 0);
  fs::remove(folder_);
  temp_.write(folder_.filename(), "in its place");
  EXPECT_TRUE(failure().starts_with("decrypting video failed: could not open " + folder_.string()));
  keys_ = [](auto) -> SymmetricKey { throw std::runtime_error("none here"); };
  EXPECT_EQ(failure(), "video archive key unavailable: none here");
}

TEST_F(WithDecryptedFile, clearsUpBehindAKilledProcessAndNobodyElse) {
  const pid_t child = ::fork();
  if (child == 0) with([](const fs::path&) { ::kill(::getpid(), SIGKILL); });
  ::waitpid(child, nullptr, 0);
  ASSERT_EQ(copies(), 1);
  with([&](const fs::path& outer) {
    with([&](const fs::path&) { EXPECT_EQ(copies(), 2); });
    EXPECT_TRUE(fs::exists(outer));
  });
  EXPECT_EQ(copies(), 0);
}

}  // namespace
}  // namespace halvo
