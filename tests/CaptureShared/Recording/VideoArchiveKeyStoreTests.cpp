#include <gtest/gtest.h>

#include <fmt/format.h>
#include <sys/wait.h>
#include <unistd.h>

#include "CaptureShared/Foundation/ExecutablePath.h"
#include "CaptureShared/Foundation/Spawn.h"
#include "CaptureShared/Recording/StoredKey.h"
#include "CaptureShared/Recording/VideoArchiveKeyProvisioning.h"
#include "CaptureShared/Recording/VideoArchiveKeyStore.h"
#include "Platform/Linux/LinuxArchiveKeyBackend.h"
#include "Platform/Testing/FakeArchiveKeyBackend.h"
#include "tests/CaptureShared/Recording/Recordings.h"
#include "tests/support/TemporaryFolder.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;
using Backend = ArchiveKeyBackend;
using KeyError = VideoArchiveKeyStore::KeyError;
using test::keyOf;

SecretBytes secret(std::string_view text) { return {text.begin(), text.end()}; }
SecretBytes stored(char fill) { return StoredKey::encode(keyOf(fill), 0); }
const std::vector<fs::path> withWriter{"/opt/halvo/Capturer", "/opt/halvo/AmbitudeApp"};

/// "1 a" for a key that is known, "2" for a fresh one, "2 rotated", or the error.
template <class Call>
std::string outcomeOf(Call call) {
  try {
    const auto loaded = call();
    auto text = std::to_string(loaded.generation);
    for (const char fill : {'a', 'b', 'c'})
      if (loaded.key == keyOf(fill)) text += std::string(" ") + fill;
    if constexpr (requires { loaded.rotated; }) text += loaded.rotated ? " rotated" : "";
    return text;
  } catch (const KeyError& error) {
    return error.what();
  }
}

using Items = std::map<std::string, Backend::Finding, std::less<>>;
Items allRefused() {
  Items items{{"default", Backend::Refused{}}};
  for (int n = 2; n <= 20; ++n) items.emplace(fmt::format("default.g{}", n), Backend::Refused{});
  return items;
}

TEST(VideoArchiveKeyStore, walksTheGenerations) {
  const Backend::Refused refused;
  const std::string missing = "no video archive key in the Keychain", locked = "login keychain is locked or not yet available",
                    unreadable = "video archive key unreadable: ", invalid = unreadable + "the Keychain item is present but not a valid key",
                    exhausted = unreadable + "exhausted 20 key generations, all unreadable",
                    failed = unreadable + "SecItemCopyMatching failed: 5 (unknown)";
  const struct { const char* name; Items items; std::string load, rotate; std::size_t lookedUp; const char* added = nullptr; } cases[] = {
      {"nothing yet", {}, missing, "1", 1, "default"},
      {"the first opens", {{"default", stored('a')}}, "1 a", "1 a", 1},
      {"the first refuses", {{"default", refused}}, missing, "2 rotated", 2, "default.g2"},
      {"the third opens", {{"default", refused}, {"default.g2", refused}, {"default.g3", stored('c')}}, "3 c", "3 c", 3},
      {"all refuse", allRefused(), exhausted, exhausted, 20},
      {"locked", {{"default", Backend::Locked{}}}, locked, locked, 1},
      {"locked behind a refusal", {{"default", refused}, {"default.g2", Backend::Locked{}}}, locked, locked, 2},
      {"broken", {{"default", Backend::Failed{5}}}, failed, failed, 1},
      {"31 bytes", {{"default", secret(R"({"createdAt":"","keyBase64":"MDAwMDAwMDAwMDAwMDAwMDAwMDAwMDAwMDAwMDAwMA=="})")}}, invalid, invalid, 1},
      {"not a key", {{"default", secret("[]")}}, invalid, invalid, 1}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    FakeArchiveKeyBackend backend;
    backend.byAccount = c.items;
    const VideoArchiveKeyStore store(backend);
    EXPECT_EQ(outcomeOf([&] { return store.loadCurrentWithGeneration(); }), c.load);
    EXPECT_TRUE(backend.added.empty());
    EXPECT_EQ(backend.lookedUp.size(), c.lookedUp);
    EXPECT_EQ(outcomeOf([&] { return store.loadOrRotate({.trustedApplicationPaths = withWriter}); }), c.rotate);
    EXPECT_EQ(backend.lookedUp.size(), 2 * c.lookedUp);
    ASSERT_EQ(backend.added.size(), c.added ? 1u : 0u);
    for (const auto& item : backend.added) {
      EXPECT_EQ(item.item, (Backend::Item{"com.brindle.ambitude.archive-key", c.added}));
      EXPECT_EQ(item.readers, withWriter);
      EXPECT_EQ(outcomeOf([&] { return store.loadCurrentWithGeneration(); }), c.rotate.substr(0, 1));
    }
  }
}

TEST(VideoArchiveKeyStore, readsExactlyTheGenerationAskedFor) {
  FakeArchiveKeyBackend backend;
  backend.byAccount = {{"default", Backend::Refused{"no"}}, {"default.g2", stored('b')}};
  const VideoArchiveKeyStore store(backend);
  EXPECT_TRUE(store.keyForGeneration(2) == keyOf('b'));
  EXPECT_TRUE(store.keyForGeneration({}) == keyOf('b'));  // walks
  for (const std::int64_t first : {-1, 0, 1})
    EXPECT_EQ(outcomeOf([&] { return VideoArchiveKeyStore::Found{store.loadGeneration(first), 1}; }),
              "video archive key exists but this process's identity isn't trusted: SecItemCopyMatching failed: -25293 (no)");
}

TEST(VideoArchiveKeyStore, makesNoKeyThatCouldNotBeUsed) {
  const std::string unreadable = "video archive key unreadable: ", noWriter = "refusing to create a video archive key with no path to Capturer";
  const struct { std::vector<fs::path> readers; std::optional<Backend::Addition> failure; std::string want; } cases[] = {
      {{}, {}, noWriter},
      {{"/opt/halvo/NotCapturer"}, {}, noWriter},
      {withWriter, Backend::NoSelf{2}, unreadable + "could not describe this process for the ACL: 2"},
      {withWriter, Backend::NoReader{"/x", 3}, unreadable + "could not add /x to the ACL: 3"},
      {withWriter, Backend::Failed{28, "disk full"}, unreadable + "SecItemAdd failed: 28 (disk full)"}};
  for (const auto& c : cases) {
    FakeArchiveKeyBackend backend;
    backend.failure = c.failure;
    const auto got = outcomeOf([&] { return VideoArchiveKeyStore(backend).loadOrRotate({.trustedApplicationPaths = c.readers, .includeSelf = true}); });
    EXPECT_TRUE(got.starts_with(c.want)) << got;
    EXPECT_TRUE(backend.added.empty());
  }
}

TEST(VideoArchiveKeyStore, takesTheKeyOfWhoeverWasFirst) {
  FakeArchiveKeyBackend backend;
  backend.byAccount = {{"default", Backend::Refused{}}};
  backend.beforeAdd = [&] { backend.byAccount.emplace("default.g2", stored('b')); };
  EXPECT_EQ(outcomeOf([&] { return VideoArchiveKeyStore(backend).loadOrRotate({.trustedApplicationPaths = withWriter}); }), "2 b");
}

TEST(VideoArchiveKeyStore, makesOneKeyHoweverManyProcessesAsk) {
  const test::TemporaryFolder home;
  fs::create_directory(home.path() / "keys");
  auto start = Spawn::Pipe::make(), keys = Spawn::Pipe::make();
  constexpr int processes = 10;
  for (int n = 0; n < processes; ++n) {
    if (::fork() != 0) continue;
    start.write.reset();
    char none;
    if (::read(start.read.fd(), &none, 1) != 0) ::_exit(1);  // they begin together, when the pipe is closed
    LinuxArchiveKeyBackend backend({.folder = home.path() / "keys", .anchor = home.path(), .self = ExecutablePath::resolveSelf()});
    const auto got = VideoArchiveKeyStore(backend).loadOrRotate({.trustedApplicationPaths = withWriter, .includeSelf = true});
    const auto line = std::string(got.key.bytes()) + static_cast<char>(got.generation) + static_cast<char>(got.rotated);
    ::_exit(::write(keys.write.fd(), line.data(), line.size()) == 34 ? 0 : 1);
  }
  start.write.reset();
  keys.write.reset();
  for (int n = 0, status = -1; n < processes; ++n) EXPECT_TRUE(::wait(&status) > 0 && status == 0);
  std::string seen(2 * 34 * processes, '\0');
  ASSERT_EQ(::read(keys.read.fd(), seen.data(), seen.size()), 34 * processes);
  for (int n = 0; n < processes; ++n) EXPECT_EQ(seen.substr(static_cast<std::size_t>(n) * 34, 34), seen.substr(0, 32) + std::string("\1\0", 2));
  EXPECT_EQ(std::distance(fs::directory_iterator(home.path() / "keys" / VideoArchiveKeyStore::defaultService), {}), 1);
}

TEST(VideoArchiveKeyProvisioning, saysWhatItDid) {
  const test::TemporaryFolder programs;
  for (const auto* name : {"Lark", "Capturer", "halvo", "FrameAudit", "stranger"}) programs.write(name, "");
  for (const auto* name : {"Lark", "Capturer", "halvo", "stranger"}) fs::permissions(programs.path() / name, fs::perms::owner_all);
  const std::string rotated =
      "rotated the video archive's encryption key to generation 2 (previous generation's ACL no longer matched — a signing change, most likely)";
  const struct { Items items; std::string said; } cases[] = {
      {{}, "[lark] #987: video archive key ready"},
      {{{"default", Backend::Refused{}}}, "[lark] #987: " + rotated + "new key created (generation 2) 1"},
      {{{"default", Backend::Refused{}}, {"default.g2", stored('b')}}, ""},
      {{{"default", Backend::Locked{}}}, "[lark] #987: could not provision the video archive key: login keychain is locked or not yet available"}};
  for (const auto& c : cases) {
    FakeArchiveKeyBackend backend;
    backend.byAccount = c.items;
    std::string said;
    VideoArchiveKeyProvisioning::provision(
        {.store = VideoArchiveKeyStore(backend),
         .executable = programs.path() / "Lark",
         .log = [&](const std::string& line) { said += line; },
         .recordKeyRotated = [&](const std::string& detail, int failures) { said += fmt::format("{} {}", detail, failures); }});
    EXPECT_EQ(said, c.said);
    for (const auto& item : backend.added)
      EXPECT_EQ(item.readers, (std::vector{programs.path() / "Capturer", programs.path() / "Lark", programs.path() / "halvo"}));
  }
}

}  // namespace
}  // namespace halvo
