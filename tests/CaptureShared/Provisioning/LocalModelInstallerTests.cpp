#include <gtest/gtest.h>

#include <csignal>

#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Net/HTTPTransportRouter.h"
#include "CaptureShared/Provisioning/LocalModelInstaller.h"
#include "CaptureShared/Provisioning/ModelProvisioning.h"
#include "CaptureShared/Provisioning/ModelRemoval.h"
#include "CaptureShared/Provisioning/ModelsFolderLock.h"
#include "tests/CaptureShared/Provisioning/SmallModel.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Eventually.h"
#include "tests/support/SmallDisk.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;
using Kind = InstallError::Kind;
using Connection = test::LoopbackServer::Connection;

class LocalModelInstallerTest : public testing::Test {
 protected:
  LocalModelInstaller installer() {
    return LocalModelInstaller({.directory = models,
                                .ollamaModelsDirectory = folder.path() / "other",
                                .transport = *transport,
                                .progressGranularityBytes = 50'000,
                                .fileOperations = operations,
                                .timeoutSec = 0.4});
  }
  /// The error's kind; absent when all is installed.
  std::optional<Kind> install(const std::stop_token& stop = {}) {
    try {
      installer().install(
          model.manifest(), [this](const auto& progress) { told.push_back(progress); }, stop);
      return std::nullopt;
    } catch (const InstallError& error) {
      words = error.what();
      return error.kind();
    }
  }
  /// A final file is right or not there, and only a right one is stamped.
  void expectNothingWrong() const {
    const auto manifest = model.manifest();
    for (const auto* artifact : manifest.artifacts()) {
      const auto file = models / artifact->fileName;
      EXPECT_EQ(fs::exists(file) ? LocalModelStore::sha256(file) : artifact->sha256, artifact->sha256);
      EXPECT_LE(LocalModelStore::stampMatches(*artifact, models), fs::exists(file));
    }
  }
  bool isVerified() const {
    return LocalModelStore::diskState(model.manifest(), models) == LocalModelStore::DiskState(LocalModelStore::Verified{});
  }
  void haveBlob(const std::string& bytes) const { folder.write("other/blobs/sha256-" + model.manifest().weights.sha256, bytes); }
  std::string partial() const { return readFile(models / "weights.partial"); }

  test::TemporaryFolder folder;
  test::SmallModel model;
  fs::path models = folder.path() / "Support/models";
  std::unique_ptr<HTTPTransport> transport = HTTPTransportRouter::standard();
  std::optional<OllamaBlobReuse::FileOperations> operations;
  std::vector<LocalModelInstaller::Progress> told;
  std::string words;
};

TEST_F(LocalModelInstallerTest, downloadsBothAndTellsHowFarItIs) {
  EXPECT_EQ(installer().bytesRemaining(model.manifest()), 320'000);
  EXPECT_EQ(install(), std::nullopt);
  EXPECT_TRUE(isVerified());
  EXPECT_EQ(fs::status(models).permissions(), fs::perms::owner_all);
  const auto request = model.server.requests().at(0);
  EXPECT_NE(request.head.find("Accept-Encoding: identity\r\n"), std::string::npos);
  EXPECT_EQ(request.head.find("Range"), std::string::npos);
  ASSERT_GE(told.size(), 7u);
  EXPECT_EQ(told.front().stage, LocalModelInstaller::Stage(LocalModelInstaller::Checking{"weights"}));
  EXPECT_EQ(told.back().completedBytes, 320'000);
  for (std::size_t i = 1; i < told.size(); ++i) EXPECT_GE(told[i].completedBytes, told[i - 1].completedBytes);
  EXPECT_EQ(install(), std::nullopt);
  EXPECT_EQ(model.server.connections(), 2u) << "what is stamped is not asked for again";
  const auto time = fs::last_write_time(models / "weights");
  fs::remove(models / "verified.json");
  EXPECT_EQ(install(), std::nullopt);
  EXPECT_EQ(fs::last_write_time(models / "weights"), time) << "what is right is only stamped anew";
  EXPECT_TRUE(isVerified());
}

TEST_F(LocalModelInstallerTest, whateverTheServerDoesTheFileIsRightOrNotThere) {
  const auto part = model.weights.substr(0, 100'000);
  const auto raw = [&](std::string bytes) {
    return [bytes = std::move(bytes)](const std::string& path, std::size_t, Connection& connection) {
      if (path != "/weights") return false;
      connection.send(bytes);
      return true;
    };
  };
  const std::string ok = "HTTP/1.1 200 OK\r\n", unsized = ok + "Connection: close\r\n\r\n",
                    elsewhere = "HTTP/1.1 302 Found\r\nContent-Length: 0\r\n";
  const struct {
    const char* name;
    std::string before;  // of the partial
    test::SmallModel::Odd odd;
    std::optional<Kind> want;
    std::string words, after;  // of the partial
  } cases[] = {
      {"a range", part, {}, {}, "", ""},
      {"200 in place of a range",
       part,
       [](auto& path, std::size_t, Connection& c) {
         if (path != "/weights") return false;
         const auto whole = test::noise(300'000, 1);
         return c.send(test::SmallModel::head(0, whole.size()) + whole), true;
       },
       {},
       "",
       ""},
      {"a range from elsewhere",
       part,
       [](auto&, std::size_t from, Connection& c) {
         return from == 100'000 && (c.send("HTTP/1.1 206 P\r\nContent-Range: bytes 99999-299999/300000\r\n\r\nxx"), true);
       },
       {},
       "",
       ""},
      {"a partial that is too long", model.weights + "x", {}, {}, "", ""},
      {"a whole partial needs no request", model.weights, raw("nothing"), {}, "", ""},
      {"416 for ever", part, raw("HTTP/1.1 416 No\r\nContent-Length: 0\r\n\r\n"), Kind::httpStatus, "the download server answered 416", ""},
      {"404", part, raw("HTTP/1.1 404 No\r\nContent-Length: 2\r\n\r\nno"), Kind::httpStatus, "the download server answered 404", part},
      {"another 2xx", part, raw("HTTP/1.1 204 No\r\n\r\n"), Kind::httpStatus, "the download server answered 204", part},
      {"a wrong length", part, raw(ok + "Content-Length: 5\r\n\r\nhello"), Kind::sizeMismatch, "5 bytes instead of 300000", part},
      {"too few bytes", "", raw(unsized + part), Kind::sizeMismatch, "100000 bytes instead of 300000", part},
      {"a byte too many", part, raw(unsized + model.weights + "x"), Kind::sizeMismatch, " bytes instead of 300000", ""},
      {"wrong bytes", part, raw(unsized + test::noise(300'000, 3)), Kind::checksumMismatch,
       "weights didn't match its published checksum, so it was thrown away", ""},
      {"a wrong beginning", std::string(100'000, 'x'), {}, Kind::checksumMismatch, "thrown away", ""},
      {"a redirect",
       part,
       [](auto& path, std::size_t, Connection& c) {
         return path == "/weights" && (c.send("HTTP/1.1 302 F\r\nLocation: /there/weights\r\nContent-Length: 0\r\n\r\n"), true);
       },
       {},
       "",
       ""},
      {"a redirect in a circle", part, raw(elsewhere + "Location: weights\r\n\r\n"), Kind::httpStatus, "answered 302", part},
      {"a redirect to plain http", part, raw(elsewhere + "Location: http://192.0.2.1/\r\n\r\n"), Kind::httpStatus, "answered 302", part},
      {"a dropped line", "", raw(ok + "Content-Length: 300000\r\n\r\n" + part), Kind::network,
       "the connection dropped (The network connection was lost.); it picks up where it left off when the connection is back", part},
      {"a stall", "", [&](auto&, std::size_t, Connection& c) { return c.send(test::SmallModel::head(0, 300'000) + part), c.hang(), true; },
       Kind::network, "the connection dropped (The request timed out.)", part},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    fs::remove_all(models), words.clear();
    if (!c.before.empty()) folder.write("Support/models/weights.partial", c.before);
    model.odd.set(c.odd);
    EXPECT_EQ(install(), c.want) << words;
    EXPECT_NE(words.find(c.words), std::string::npos) << words;
    expectNothingWrong();
    EXPECT_EQ(isVerified(), !c.want);
    EXPECT_EQ(fs::exists(models / "weights.partial") ? partial() : "", c.after);
    model.odd.set({});
    EXPECT_EQ(install(), std::nullopt) << "the next one ends well, whatever this one did";
    EXPECT_TRUE(isVerified());
  }
}

TEST_F(LocalModelInstallerTest, aLineThatIsCutAfterEveryFewBytesArrives) {
  for (const std::size_t step : {70'001u, 16'384u, 1'000u}) {
    SCOPED_TRACE(step);
    fs::remove_all(models);
    if (step < 16'384) model.weights.resize(30'000);
    model.odd.set([&](const std::string& path, std::size_t from, Connection& connection) {
      const auto& file = path == "/weights" ? model.weights : model.projector;
      return connection.send(test::SmallModel::head(from, file.size()) + file.substr(from, step)), true;
    });
    std::size_t tries = 1;
    for (; install() == Kind::network; ++tries) expectNothingWrong();
    EXPECT_TRUE(isVerified()) << words;
    EXPECT_GT(tries, model.weights.size() / step);
  }
}

TEST_F(LocalModelInstallerTest, aStopLeavesThePartialAndNobodyElseInstallsMeanwhile) {
  model.odd.set([&](auto&, std::size_t, Connection& c) {
    return c.send(test::SmallModel::head(0, 300'000) + model.weights.substr(0, 99'999)), c.hang(), true;
  });
  std::stop_source source;
  std::jthread stopper([&] {
    test::eventually([&] { return fs::exists(models / "weights.partial") && fs::file_size(models / "weights.partial") == 99'999; });
    EXPECT_EQ(install(), Kind::fileSystem);
    EXPECT_TRUE(words.starts_with("another install is at work in ")) << words;
    EXPECT_THROW(ModelRemoval::apply(ModelRemoval::plan(model.manifest(), models), model.manifest(), models), std::runtime_error);
    source.request_stop();
  });
  auto patient = LocalModelInstaller({.directory = models, .ollamaModelsDirectory = {}, .transport = *transport});
  EXPECT_THROW(patient.install(model.manifest(), {}, source.get_token()), Cancelled);
  stopper.join();
  EXPECT_EQ(partial().size(), 99'999u);
  EXPECT_EQ(installer().bytesRemaining(model.manifest()), 320'000 - 99'999);
}

/// Not a test: the process that `aKilledInstallGoesOn` kills.
TEST_F(LocalModelInstallerTest, DISABLED_installs) {
  LocalModelInstaller({.directory = std::getenv("MODELS"), .ollamaModelsDirectory = {}, .transport = *transport})
      .install(model.manifest(std::getenv("BASE")), {});
}

TEST_F(LocalModelInstallerTest, aKilledInstallGoesOn) {
  model.odd.set([&](const std::string& path, std::size_t from, Connection& connection) {
    const auto& file = path == "/weights" ? model.weights : model.projector;
    connection.send(test::SmallModel::head(from, file.size()));
    for (auto at = from; at < file.size(); at += 997)
      if (connection.send(file.substr(at, 997)); !connection.hang(std::chrono::milliseconds(1))) break;
    return true;
  });
  const Environment environment{{"MODELS", models.string()}, {"BASE", model.server.baseURL()}};
  std::mt19937 random(7);
  std::optional<int> status;
  int kills = 0;
  for (std::size_t upTo = 0; status != 0 && kills < 40; ++kills) {
    upTo += random() % 60'000;
    test::ChildProcess child("/proc/self/exe", {"--gtest_filter=*installs", "--gtest_also_run_disabled_tests"}, environment);
    const auto isFar = [&] {
      std::error_code missing;
      const auto size = fs::file_size(models / "weights.partial", missing);
      return (!missing && size >= upTo) || fs::exists(models / "weights");
    };
    ASSERT_TRUE(test::eventually(isFar, 30));
    if (status = child.wait(fs::exists(models / "weights") ? 0.02 : 0); !status) child.signal(SIGKILL), child.wait(5);
    expectNothingWrong();
    EXPECT_TRUE(!fs::exists(models / "weights.partial") || model.weights.starts_with(partial())) << "a beginning of the file, cut anywhere";
  }
  EXPECT_GE(kills, 4);
  EXPECT_EQ(install(), std::nullopt);
  EXPECT_TRUE(isVerified());
}

TEST_F(LocalModelInstallerTest, borrowsWhatAnotherInstallationHas) {
  const auto reuse = [&] {
    fs::create_directories(models);
    return OllamaBlobReuse::reuse(model.manifest().weights, models, folder.path() / "other",
                                  operations.value_or(OllamaBlobReuse::FileOperations::real()), {});
  };
  const auto blob = OllamaBlobReuse::candidate(model.manifest().weights, folder.path() / "other");
  EXPECT_EQ(reuse(), OllamaBlobReuse::Outcome(OllamaBlobReuse::NoCandidate{}));
  haveBlob("short");
  EXPECT_EQ(reuse(), OllamaBlobReuse::Outcome(OllamaBlobReuse::NoCandidate{}));
  haveBlob(test::noise(300'000, 3));
  EXPECT_EQ(reuse(), OllamaBlobReuse::Outcome(OllamaBlobReuse::HashMismatch{}));
  EXPECT_TRUE(fs::exists(blob)) << "somebody else's";
  haveBlob(model.weights);
  fs::rename(blob, folder.path() / "elsewhere"), fs::create_symlink(folder.path() / "elsewhere", blob);
  EXPECT_EQ(installer().bytesRemaining(model.manifest()), 20'000);
  EXPECT_EQ(install(), std::nullopt);
  EXPECT_EQ(model.server.connections(), 1u) << "only the projector was asked for";
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(models / "weights"))) << "not a link that anyone may turn";
  EXPECT_EQ(fs::hard_link_count(models / "weights"), 2u);
  EXPECT_TRUE(isVerified());

  fs::remove(models / "weights");
  operations = OllamaBlobReuse::FileOperations::real();
  operations->link = [](const fs::path&, const fs::path&) { throw std::system_error(EXDEV, std::generic_category()); };
  EXPECT_EQ(reuse(), OllamaBlobReuse::Outcome(OllamaBlobReuse::Reused{OllamaBlobReuse::LinkMethod::copy}));
  EXPECT_EQ(fs::hard_link_count(models / "weights"), 1u);
  operations->copy = [](const fs::path&, const fs::path& to) {
    std::ofstream(to) << "half";
    throw std::system_error(ENOSPC, std::generic_category());
  };
  fs::remove(models / "weights");
  EXPECT_EQ(reuse(), OllamaBlobReuse::Outcome(OllamaBlobReuse::NoCandidate{}));
  EXPECT_FALSE(fs::exists(models / "weights.borrowed"));
  EXPECT_EQ(OllamaBlobReuse::modelsDirectory({{"HOME", "/h"}, {"OLLAMA_MODELS", " "}}), "/h/.ollama/models");
  EXPECT_EQ(OllamaBlobReuse::modelsDirectory({{"OLLAMA_MODELS", "/m"}}), "/m");
}

TEST_F(LocalModelInstallerTest, aDiskThatIsTooSmallIsToldBeforeTheFirstByte) {
  const auto enough = 320'000 + ModelProvisioning::diskHeadroomBytes;
  EXPECT_EQ(installer().diskShortfall(model.manifest(), enough), std::nullopt);
  EXPECT_EQ(installer().diskShortfall(model.manifest(), std::nullopt), std::nullopt);
  EXPECT_EQ(
      installer().diskShortfall(model.manifest(), enough - 1),
      "small is 0 MB and this Mac has 2.00 GB free. It needs at least 2.00 GB free, so the disk isn't left full. Free up some space and "
      "try again.");
}

TEST_F(LocalModelInstallerTest, aDiskThatFillsUpOnTheWayKeepsWhatIsThere) {
  const test::SmallDisk disk(256 * 1024);
  ASSERT_TRUE(disk.isThere()) << "mounting takes root";
  models = disk.path() / "models";
  EXPECT_EQ(install(), Kind::fileSystem) << words;
  EXPECT_NE(words.find("No space left on device"), std::string::npos) << words;
  EXPECT_FALSE(fs::exists(models / "weights"));
  EXPECT_TRUE(model.weights.starts_with(partial()) && partial().size() > 100'000) << partial().size();
  fs::copy(models, folder.path() / "larger");
  models = folder.path() / "larger";
  EXPECT_EQ(install(), std::nullopt) << words;
  EXPECT_TRUE(isVerified());
  EXPECT_EQ(model.server.connections(), 3u) << "it went on with what it had";
}

TEST_F(LocalModelInstallerTest, removal) {
  ASSERT_EQ(install(), std::nullopt);
  folder.write("Support/models/weights.partial", "abc"), folder.write("Support/models/mine", "kept");
  fs::rename(models / "projector", folder.path() / "projector"), fs::create_symlink(folder.path() / "projector", models / "projector");
  auto plan = ModelRemoval::plan(model.manifest(), models);
  EXPECT_EQ(plan.bytes(), 300'003);
  EXPECT_THROW(ModelRemoval::apply(plan, model.manifest(), models), std::runtime_error) << "what a link leads to is not ours";
  EXPECT_TRUE(fs::exists(models / "weights"));
  fs::remove(models / "projector");
  plan = ModelRemoval::plan(model.manifest(), models);
  ModelRemoval::apply(plan, model.manifest(), models);
  EXPECT_FALSE(fs::exists(models / "weights"));
  EXPECT_TRUE(fs::exists(models / "mine"));
  EXPECT_TRUE(LocalModelStore::readStamps(models).empty());
}

}  // namespace
}  // namespace halvo
