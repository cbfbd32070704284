#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "AmbitudeAppKit/Views/Page.h"
#include "AmbitudeAppKit/Views/ModelView.h"
#include "AmbitudeAppKit/Views/RecordingsView.h"
#include "AmbitudeAppKit/Views/ServicesView.h"
#include "AmbitudeAppKit/Views/ReviewView.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/Clock.h"

namespace halvo::Pages {

/// What the pages behind the first two need of the program that shows them. It alone knows the machine.
struct Needs {
  std::filesystem::path root = {};
  Calendar calendar = Calendar::local();
  std::function<std::int64_t()> nowMs = Clock::system().nowMs;
  ReviewView::Operations review = {};
  RecordingsView::Operations recordings = {};
  ModelView::Operations model = {};
  ServicesView::Operations services = {};
  std::function<std::string()> diagnostics = {};  ///< the report's text
};

/// Every page behind Now and Conversation, in their order.
std::vector<PageEntry> all(const Needs& needs);

}  // namespace halvo::Pages
