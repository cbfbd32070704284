#pragma once

#include <cstdlib>

namespace halvo {

/// A property that holds for every input of a fuzz target.
inline void require(bool holds) {
  if (!holds) std::abort();
}

}  // namespace halvo
