#pragma once

#include <string>

#include "CaptureShared/Foundation/RawValue.h"

namespace halvo {

/// `dropped` is a real status: what was given up is kept as given up.
enum class MemoryThreadStatus { active, dormant, done, dropped };
template <>
struct RawValues<MemoryThreadStatus> {
  static constexpr std::array table{std::pair{MemoryThreadStatus::active, "active"}, std::pair{MemoryThreadStatus::dormant, "dormant"},
                                    std::pair{MemoryThreadStatus::done, "done"}, std::pair{MemoryThreadStatus::dropped, "dropped"}};
};

/// A concern or project of the person's.
struct MemoryThread {
  std::string name = {};
  MemoryThreadStatus status = MemoryThreadStatus::active;
  std::string notes = {};  ///< what is going on with it
  bool operator==(const MemoryThread&) const = default;
};

}  // namespace halvo
