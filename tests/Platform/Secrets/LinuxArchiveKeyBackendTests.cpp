#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/Match.h"
#include "Platform/Linux/LinuxArchiveKeyBackend.h"
#include "tests/support/SmallDisk.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;
using Backend = ArchiveKeyBackend;

SecretBytes bytes(std::string_view text) { return {text.begin(), text.end()}; }
std::string nameOf(const Backend::Finding& finding) {
  return match(
      finding, [](const SecretBytes& secret) { return std::string(view(secret)); }, [](const Backend::Absent&) { return std::string("absent"); },
      [](const Backend::Refused&) { return std::string("refused"); }, [](const Backend::Locked&) { return std::string("locked"); },
      [](const Backend::Failed& failed) { return std::to_string(failed.status); });
}

/// Whether it holds in a process of its own.
template <class Claim>
bool inAChild(Claim claim) {
  int status = -1;
  if (const pid_t child = ::fork(); child == 0) ::_exit(claim() ? 0 : 1);
  else ::waitpid(child, &status, 0);
  return status == 0;
}

class LinuxKeys : public testing::Test {
 protected:
  LinuxKeys() {
    home_.write("bin/reader", "");
    fs::create_symlink("bin", home_.path() / "current");
  }
  LinuxArchiveKeyBackend backend(const char* self = "reader") const {
    return LinuxArchiveKeyBackend({.folder = home_.path() / "Library/keys", .anchor = home_.path(), .self = home_.path() / "bin" / self});
  }
  Backend::NewItem newItem() const {
    return {.item = item_, .secret = bytes(std::string_view("s\0cret", 6)), .label = "a \"secret\": label", .readers = {home_.path() / "current/reader"}};
  }
  test::TemporaryFolder home_;
  const Backend::Item item_{"the.service", "default"};
  const fs::path file_ = home_.path() / "Library/keys/the.service/default.json";
};

TEST_F(LinuxKeys, keepASecretForItsReaders) {
  EXPECT_EQ(nameOf(backend().find(item_)), "absent");
  ASSERT_TRUE(std::holds_alternative<Backend::Added>(backend().add(newItem())));
  EXPECT_EQ(nameOf(backend("stranger").find(item_)), "refused");
  EXPECT_EQ(fs::status(file_).permissions(), fs::perms(0600));
  for (auto folder = file_.parent_path(); folder != home_.path(); folder = folder.parent_path())
    EXPECT_EQ(fs::status(folder).permissions(), fs::perms(0700)) << folder;
  auto other = newItem();
  other.secret = bytes("other");
  EXPECT_TRUE(std::holds_alternative<Backend::Duplicate>(backend().add(other)));
  EXPECT_EQ(nameOf(backend().find(item_)), std::string("s\0cret", 6));
  EXPECT_EQ(std::distance(fs::directory_iterator(file_.parent_path()), {}), 1) << "a draft was left";
  other.includeSelf = true;
  other.item.keychainPath = (home_.path() / "apart").string();
  ASSERT_TRUE(std::holds_alternative<Backend::Added>(backend("stranger").add(other)));
  EXPECT_EQ(nameOf(backend("stranger").find(other.item)), "other");
}

TEST_F(LinuxKeys, tellAbsentFromLockedAndFromBroken) {
  ASSERT_TRUE(std::holds_alternative<Backend::Added>(backend().add(newItem())));
  const auto whole = readFile(file_);
  const std::string name = file_.lexically_relative(home_.path());
  const struct { const char* what; std::string text, want; } cases[] = {
      {"cut", whole.substr(0, whole.size() - 4), "-26275"},
      {"no base64", R"({"readers":[],"secret":"x"})", "-26275"},
      {"no readers", R"({"secret":"eA=="})", "-26275"},
      {"too long", whole + std::string(1 << 16, ' '), "-26275"},
      {"nobody's", R"({"readers":[7, "relative/reader"],"secret":"eA=="})", "refused"},
      {"whole again", whole, std::string("s\0cret", 6)}};
  for (const auto& c : cases) {
    home_.write(name, c.text);
    EXPECT_EQ(nameOf(backend().find(item_)), c.want) << c.what;
  }
  const auto answersAnother = [&](const std::string& want) {
    return inAChild([&] { return ::setuid(65534) == 0 && nameOf(backend().find(item_)) == want; });
  };
  EXPECT_TRUE(answersAnother("locked"));  // the folder is not theirs
  for (auto folder = file_.parent_path(); folder != home_.path().parent_path(); folder = folder.parent_path())
    fs::permissions(folder, fs::perms(0755));
  EXPECT_TRUE(answersAnother("locked"));  // the file is not
  fs::permissions(file_, fs::perms(0644));
  EXPECT_TRUE(answersAnother(std::to_string(EINVAL))) << "another account's item was taken";
  fs::rename(file_, home_.path() / "elsewhere");
  fs::create_symlink(home_.path() / "elsewhere", file_);
  EXPECT_EQ(nameOf(backend().find(item_)), std::to_string(ELOOP));
  const LinuxArchiveKeyBackend::Setup unmounted{.folder = "/nowhere/keys", .anchor = "/nowhere", .self = "/reader"};
  EXPECT_EQ(nameOf(LinuxArchiveKeyBackend(unmounted).find(item_)), "locked");
  for (const auto* bad : {"", "..", "a/b"}) EXPECT_EQ(nameOf(backend().find({"the.service", bad})), "-50") << bad;
}

TEST_F(LinuxKeys, leaveNothingHalfMade) {
  const test::SmallDisk disk;
  ASSERT_TRUE(disk.isThere());
  auto item = newItem();
  item.item.keychainPath = disk.path().string();
  item.secret = bytes(std::string(100'000, 'x'));
  const auto outcome = backend().add(item);
  EXPECT_EQ(std::get<Backend::Failed>(outcome).status, ENOSPC);
  EXPECT_TRUE(fs::is_empty(disk.path() / "the.service"));
}

TEST_F(LinuxKeys, turnCoreDumpsOffWithTheAccountsOwn) {
  EXPECT_TRUE(inAChild([&] {
    auto own = LinuxArchiveKeyBackend::forAccount({{"HOME", home_.path().string()}});
    own.add({.item = item_, .secret = bytes("x"), .label = "", .includeSelf = true});
    return nameOf(own.find(item_)) == "x" && ::prctl(PR_GET_DUMPABLE) == 0;
  }));
}

}  // namespace
}  // namespace halvo
