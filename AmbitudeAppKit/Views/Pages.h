#pragma once

#include <filesystem>
#include <vector>

#include "AmbitudeAppKit/Views/Page.h"
#include "AmbitudeAppKit/Views/RecordingsView.h"

namespace halvo::Pages {

/// What the pages behind the first two need of the program that shows them. It alone knows the machine.
struct Needs {
  std::filesystem::path root = {};
  RecordingsView::Operations recordings = {};
};

/// Every page behind Now and Conversation, in their order.
std::vector<PageEntry> all(const Needs& needs);

}  // namespace halvo::Pages
