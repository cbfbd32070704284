#pragma once

#include <filesystem>

#include "CaptureShared/Foundation/Environment.h"
#include "Platform/Secrets/ArchiveKeyBackend.h"

namespace halvo {

/// Secrets as files: `<folder>/<service>/<account>.json`, 0600 in folders of 0700, with the keys `label`, `readers` (paths of executables)
/// and `secret` (base64). Made under another name, on the disk before it gets its own, and linked, so that no item is ever replaced.
///
/// The list of readers keeps a program that was moved or renamed, or an honest stranger, from using the item. It is no wall: whoever runs
/// as the account can read the account's files.
class LinuxArchiveKeyBackend : public ArchiveKeyBackend {
 public:
  struct Setup {
    std::filesystem::path folder = {};
    /// While this is not there (a home that is not mounted yet) everything is `Locked`. Folders are made below it only.
    std::filesystem::path anchor = {};
    std::filesystem::path self = {};  ///< this program's own file, links resolved; empty: it reads nothing
  };
  explicit LinuxArchiveKeyBackend(Setup setup) : setup_(std::move(setup)) {}

  /// The account's own: "keys" in the support folder, read by this program. Turns this process's core dumps off, as a key is to come into
  /// it.
  static LinuxArchiveKeyBackend forAccount(const Environment& environment);

  /// An item that can't be opened for want of permission, or whose folder can't, is `Locked`; one that is damaged, too long (64 KiB), no
  /// ordinary file or another account's is `Failed`. A reader counts when its path, links resolved, is this program's.
  Finding find(const Item& item) override;
  Addition add(const NewItem& item) override;

 private:
  struct Place {
    std::filesystem::path anchor, folder, file;
  };
  /// Absent for a name that is no plain file name.
  std::optional<Place> placeOf(const Item& item) const;
  bool mayRead(const std::filesystem::path& reader) const;

  Setup setup_;
};

}  // namespace halvo
