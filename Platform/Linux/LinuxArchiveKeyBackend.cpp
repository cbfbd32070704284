#include "Platform/Linux/LinuxArchiveKeyBackend.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "CaptureShared/Foundation/Base64.h"
#include "CaptureShared/Foundation/CoreDumps.h"
#include "CaptureShared/Foundation/ExecutablePath.h"
#include "CaptureShared/Foundation/FileHandle.h"
#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Foundation/UserFolders.h"

namespace halvo {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t maxItemBytes = 64 << 10;
// The platform's numbers for what errno has no number for.
constexpr int invalidParameter = -50, undecodableItem = -26275;

ArchiveKeyBackend::Failed failedWith(int code) { return {.status = code, .text = errnoText(code)}; }
ArchiveKeyBackend::Failed undecodable() { return {.status = undecodableItem, .text = "the item's file is damaged"}; }

bool isPlainName(std::string_view name) {
  return !name.empty() && name.size() <= 200 && name.front() != '.' && name.find('/') == name.npos && name.find('\0') == name.npos;
}

/// Folders of 0700 from below `anchor` down to `folder`.
void makeFolders(const fs::path& anchor, const fs::path& folder) {
  auto at = anchor;
  for (const auto& part : folder.lexically_relative(anchor)) makePrivateFolder(at /= part);
}

/// Brings the names in `folder`, and those of the folders above it up to `anchor`, onto the disk.
void syncFolders(const fs::path& anchor, fs::path folder) {
  for (;; folder = folder.parent_path()) {
    const FileHandle handle(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!handle || ::fsync(handle.fd()) != 0) throw std::system_error(errno, std::generic_category(), folder.string());
    if (folder == anchor || folder == folder.root_path()) return;
  }
}

SecretBytes contents(const FileHandle& handle, std::size_t size) {
  SecretBytes text(size);
  text.resize(handle.readInto(text, 0));
  return text;
}

SecretBytes itemText(const JSONValue& readers, const std::string& label, const SecretBytes& secret) {
  const auto coded = Base64::encodeSecret(view(secret));
  SecretBytes text;
  append(text, R"({"label":)");
  append(text, JSONValue(label).dump());
  append(text, R"(,"readers":)");
  append(text, readers.dump());
  append(text, R"(,"secret":")");
  append(text, view(coded));
  append(text, "\"}\n");
  return text;
}

/// The file under a name of its own until it is linked to the one it is for.
class Draft {
 public:
  Draft(const fs::path& folder, const std::string& account, const SecretBytes& text) : name_((folder / ("." + account + ".XXXXXX")).string()) {
    FileHandle handle(::mkostemp(name_.data(), O_CLOEXEC));  // 0600 from the first byte
    if (!handle) throw std::system_error(errno, std::generic_category(), name_);
    isThere_ = true;
    try {
      writeAll(handle.fd(), view(text), name_);
      if (::fsync(handle.fd()) != 0) throw std::system_error(errno, std::generic_category(), name_);
    } catch (...) {
      remove();
      throw;
    }
  }
  Draft(const Draft&) = delete;
  Draft& operator=(const Draft&) = delete;
  ~Draft() { remove(); }

  /// 0, or the error's number.
  int linkTo(const fs::path& file) const { return ::link(name_.c_str(), file.c_str()) == 0 ? 0 : errno; }

 private:
  void remove() {
    if (std::exchange(isThere_, false)) ::unlink(name_.c_str());
  }
  std::string name_;
  bool isThere_ = false;
};

}  // namespace

LinuxArchiveKeyBackend LinuxArchiveKeyBackend::forAccount(const Environment& environment) {
  turnCoreDumpsOff();
  return LinuxArchiveKeyBackend({.folder = UserFolders::supportDir(environment) / "keys",
                                 .anchor = UserFolders::home(environment),
                                 .self = ExecutablePath::resolveSelf()});
}

std::optional<LinuxArchiveKeyBackend::Place> LinuxArchiveKeyBackend::placeOf(const Item& item) const {
  if (!isPlainName(item.service) || !isPlainName(item.account)) return std::nullopt;
  const auto root = item.keychainPath ? fs::absolute(*item.keychainPath) : setup_.folder;
  return Place{.anchor = item.keychainPath ? root.parent_path() : setup_.anchor,
               .folder = root / item.service,
               .file = root / item.service / (item.account + ".json")};
}

bool LinuxArchiveKeyBackend::mayRead(const fs::path& reader) const {
  if (setup_.self.empty()) return false;
  std::error_code unresolved;
  const auto path = fs::weakly_canonical(reader, unresolved);
  return (unresolved ? reader.lexically_normal() : path) == setup_.self;
}

ArchiveKeyBackend::Finding LinuxArchiveKeyBackend::find(const Item& item) try {
  const auto place = placeOf(item);
  if (!place) return Failed{.status = invalidParameter, .text = "not an item's name"};
  const FileHandle handle(::open(place->file.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (!handle) {
    const int code = errno;
    if (code == ENOENT && ::access(place->anchor.c_str(), F_OK) == 0) return Absent{};
    if (code == ENOENT || code == EACCES || code == EPERM) return Locked{};
    return failedWith(code);
  }
  struct stat status {};
  if (::fstat(handle.fd(), &status) != 0) return failedWith(errno);
  if (!S_ISREG(status.st_mode) || status.st_uid != ::geteuid()) return failedWith(EINVAL);
  if (status.st_size > static_cast<off_t>(maxItemBytes)) return undecodable();
  auto text = contents(handle, static_cast<std::size_t>(status.st_size));
  const auto coded = takeSecretMember(text, "secret");
  const auto rest = JSONValue::parse(view(text));
  const auto* list = rest ? rest->find("readers") : nullptr;
  const auto* readers = list ? list->arrayValue() : nullptr;
  auto secret = coded ? Base64::decode(view(*coded)) : std::nullopt;
  if (!readers || !secret) return undecodable();
  if (std::none_of(readers->begin(), readers->end(), [&](const auto& one) { return one.stringValue() && mayRead(*one.stringValue()); }))
    return Refused{"this program is not among the item's readers"};
  return std::move(*secret);
} catch (const std::system_error& error) {
  return failedWith(error.code().value());
}

ArchiveKeyBackend::Addition LinuxArchiveKeyBackend::add(const NewItem& item) try {
  const auto place = placeOf(item.item);
  if (!place || !Text::isValidUTF8(item.label)) return Failed{.status = invalidParameter, .text = "not an item's name"};
  JSONValue::Array readers;
  if (item.includeSelf) {
    if (setup_.self.empty() || !Text::isValidUTF8(setup_.self.native())) return NoSelf{ENOENT};
    readers.emplace_back(setup_.self.string());
  }
  for (const auto& reader : item.readers) {
    if (!reader.is_absolute() || !Text::isValidUTF8(reader.native())) return NoReader{.path = reader, .status = EINVAL};
    readers.emplace_back(reader.string());
  }
  makeFolders(place->anchor, place->folder);
  const Draft draft(place->folder, item.item.account, itemText(readers, item.label, item.secret));
  if (const int code = draft.linkTo(place->file); code != 0) return code == EEXIST ? Addition(Duplicate{}) : Addition(failedWith(code));
  syncFolders(place->anchor, place->folder);
  return Added{};
} catch (const std::system_error& error) {
  return failedWith(error.code().value());
}

}  // namespace halvo
