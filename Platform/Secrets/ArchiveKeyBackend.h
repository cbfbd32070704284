#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "CaptureShared/Foundation/SecretBytes.h"

namespace halvo {

/// Named small secrets, each with the list of the programs that may read it. Never asks a person anything, never replaces or removes a
/// secret. Operations block; safe from any thread.
class ArchiveKeyBackend {
 public:
  virtual ~ArchiveKeyBackend() = default;

  struct Item {
    std::string service, account;
    std::optional<std::string> keychainPath = {};  ///< a store apart from the account's own
    bool operator==(const Item&) const = default;
  };

  struct Absent {};   ///< there is no such item
  struct Refused {    ///< there is one, and this program is not among its readers
    std::optional<std::string> text = {};
  };
  struct Locked {};   ///< nobody can tell now whether there is one: look again later, create nothing
  struct Failed {     ///< anything else
    int status = 0;
    std::optional<std::string> text = {};
  };
  using Finding = std::variant<SecretBytes, Absent, Refused, Locked, Failed>;
  virtual Finding find(const Item& item) = 0;

  struct NewItem {
    Item item;
    SecretBytes secret;
    std::string label;
    bool includeSelf = false;  ///< this program is the first of the readers
    std::vector<std::filesystem::path> readers;
  };
  struct Added {};
  struct Duplicate {};   ///< another process was first; its item stands
  struct NoSelf {        ///< this program can't be named as a reader
    int status = 0;
  };
  struct NoReader {      ///< that one can't
    std::filesystem::path path;
    int status = 0;
  };
  struct NoReaderList {  ///< the list of them can't be made
    int status = 0;
  };
  using Addition = std::variant<Added, Duplicate, NoSelf, NoReader, NoReaderList, Failed>;
  /// Of processes that add one name at once exactly one is told `Added`, and the item is whole and on the disk when it is.
  virtual Addition add(const NewItem& item) = 0;
};

}  // namespace halvo
