#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <system_error>
#include <variant>
#include <vector>

#include "CaptureShared/Foundation/Translation.h"

/// The list of everything the system owns under the data root. What is not on it is never deleted.
namespace halvo::DataRootLayout {

namespace fs = std::filesystem;

struct Exact {
  std::string text;
};
/// Names longer than prefix and suffix together that have both.
struct Pattern {
  std::string prefix, suffix;
};
using Name = std::variant<Exact, Pattern>;
bool matches(const Name& name, std::string_view text);

struct Entry;
struct File {};
struct DirectoryWholesale {};  ///< covers everything below it
struct Directory {
  std::vector<Entry> children;
};
using Kind = std::variant<File, DirectoryWholesale, Directory>;

struct Entry {
  Name name;
  Kind kind;
  std::string writer;  ///< who writes it, for people and for the uninstall report
};

/// The owned entries, in their order. A `.sqlite` file stands four times: itself and its "-wal", "-shm" and "-journal".
const std::vector<Entry>& entries();
/// Files that came later; owned like the others.
const std::vector<Entry>& supplementary();

bool covers(std::string_view relativePath);

struct Survey {
  std::vector<std::string> owned, containers, unknown;  ///< paths relative to the root
  bool isEmpty() const { return owned.empty() && containers.empty() && unknown.empty(); }
};
/// Lists the root. A link is what it is, a link: never walked.
Survey survey(const fs::path& root);

/// Why a protected machine deletes nothing.
inline constexpr const char* protectedMachineExplanation =
    trMark("This Mac is protected from purging recorded data, so nothing was deleted.");

struct Removal {
  std::vector<std::string> failures;
  std::vector<std::string> leftBehind;  ///< containers that were not empty
  bool rootRemoved = false;
};
/// The two removals, so that a test can bend one. Each throws `std::system_error`; a tree's links are removed, never followed.
struct RemovalOps {
  std::function<void(const fs::path&)> removeTree;
  std::function<void(const fs::path&)> removeEmptyFolder;
  static RemovalOps real();
};
/// Removes what is owned, then each container and at last the root if they have become empty. A protected machine removes nothing and says so.
Removal removeOwned(const fs::path& root, bool machineIsProtected, const RemovalOps& ops = RemovalOps::real());

}  // namespace halvo::DataRootLayout
