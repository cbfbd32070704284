#pragma once

#include <string>

namespace halvo {

/// One file for the service manager: its name (the unit's) and its text.
struct UnitFile {
  std::string name, text;
  bool operator==(const UnitFile&) const = default;
};

}  // namespace halvo
