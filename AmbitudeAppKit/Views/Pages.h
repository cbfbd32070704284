#pragma once

#include <filesystem>
#include <vector>

#include "AmbitudeAppKit/Views/Page.h"

namespace halvo::Pages {

/// What the pages behind the first two need of the program that shows them.
struct Needs {
  std::filesystem::path root = {};
};

/// Every page behind Now and Conversation, in their order.
std::vector<PageEntry> all(const Needs& needs);

}  // namespace halvo::Pages
