#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "CaptureShared/Recording/SymmetricKey.h"
#include "Platform/Secrets/ArchiveKeyBackend.h"

namespace halvo {

/// The keys of the recordings. A program that an item's list of readers does not admit moves on to the next generation's item instead of
/// failing, and makes it when it is not there; no item is ever changed or removed, so what an older key sealed stays readable to those it
/// admits. A small value; results are not kept.
class VideoArchiveKeyStore {
 public:
  static constexpr std::string_view defaultService = "com.brindle.ambitude.archive-key";
  static constexpr std::string_view defaultAccount = "default";
  static constexpr int maxGeneration = 20;
  /// Who reads the keys, besides the application.
  static constexpr std::array<std::string_view, 4> trustedExecutableNames{"Capturer", "CoreVerify", "ClassifierVerify", "FrameAudit"};
  /// The command line too: it shows frames and plays recordings.
  static constexpr std::string_view trustedCommandName = "halvo";

  /// `what()` never has a key in it.
  class KeyError : public std::runtime_error {
   public:
    enum class Kind { unreadable, aclMismatch, missing, locked, itemAlreadyExists, noWriterInACL };
    static KeyError unreadable(const std::string& detail);
    static KeyError aclMismatch(const std::string& detail);
    static KeyError missing();
    static KeyError locked();
    static KeyError itemAlreadyExists();
    static KeyError noWriterInACL();
    Kind kind() const { return kind_; }

   private:
    KeyError(Kind kind, const std::string& text) : std::runtime_error(text), kind_(kind) {}
    Kind kind_;
  };

  struct Names {
    std::string service{defaultService};
    std::string account{defaultAccount};
    std::optional<std::string> keychainPath = {};  ///< a store that takes the place of the account's own
  };
  /// The backend outlives the store.
  explicit VideoArchiveKeyStore(ArchiveKeyBackend& backend) : VideoArchiveKeyStore(backend, Names()) {}
  VideoArchiveKeyStore(ArchiveKeyBackend& backend, Names names) : backend_(&backend), names_(std::move(names)) {}

  struct Found {
    SymmetricKey key;
    int generation;
  };
  /// The first key, by generation, that opens. Throws `KeyError`; nothing is ever made.
  SymmetricKey load() const;
  SymmetricKey loadCurrent(int max = maxGeneration) const;
  Found loadCurrentWithGeneration(int max = maxGeneration) const;
  /// That one and no other; below 1 counts as 1. Throws `KeyError`.
  SymmetricKey loadGeneration(std::int64_t generation) const;
  /// As `loadGeneration`; without a generation as `load`.
  SymmetricKey keyForGeneration(std::optional<std::uint32_t> generation) const;

  struct Provision {
    std::vector<std::filesystem::path> trustedApplicationPaths = {};
    bool includeSelf = false;
    int max = maxGeneration;
    std::int64_t nowMs = 0;
  };
  struct Loaded {
    SymmetricKey key;
    bool rotated;  ///< a key was made because an older one refused this program
    int generation;
  };
  /// The first key that opens; where that generation has none yet, a new one, unless another process makes it first. Throws `KeyError`.
  Loaded loadOrRotate(const Provision& provision) const;

  /// Those of the trusted programs that can be run at this moment, in order. `appBundle` is the folder that the programs share.
  static std::vector<std::filesystem::path> trustedApplicationPaths(const std::filesystem::path& appBundle,
                                                                    std::string_view appBundleExecutableName);
  /// The same for the folder of this program; absent when it has no path.
  static std::optional<std::vector<std::filesystem::path>> trustedApplicationPathsForCurrentBundle();
  /// The application's program, and the one that it becomes to show its window.
  static constexpr std::string_view applicationName = "AmbitudeApp", applicationWindowName = "AmbitudeWindow";

 private:
  using Creator = std::function<SymmetricKey(const ArchiveKeyBackend::Item&)>;

  ArchiveKeyBackend::Item item(std::int64_t generation) const;
  SymmetricKey read(const ArchiveKeyBackend::Item& item) const;
  Found walk(int max, const Creator& create) const;
  SymmetricKey create(const ArchiveKeyBackend::Item& item, const Provision& provision) const;

  ArchiveKeyBackend* backend_;
  Names names_;
};

}  // namespace halvo
