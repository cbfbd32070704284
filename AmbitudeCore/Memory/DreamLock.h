#pragma once

#include <filesystem>
#include <string>
#include <variant>

#include "CaptureShared/Foundation/FileHandle.h"

/// The one lock between processes: whoever holds `memory/.dream.lock` writes the memory. It ends with its process, however that ends.
namespace halvo::DreamLock {

class Held {
 public:
  explicit Held(FileHandle file) : file_(std::move(file)) {}

 private:
  FileHandle file_;
};
struct HeldElsewhere {};
/// No lock is to be had here; the pass goes on without.
struct Unavailable {
  std::string reason;
};
using Outcome = std::variant<Held, HeldElsewhere, Unavailable>;

/// Never waits and never throws. Makes `memory/` when it is missing, not the data root.
Outcome acquire(const std::filesystem::path& dataRoot);

}  // namespace halvo::DreamLock
