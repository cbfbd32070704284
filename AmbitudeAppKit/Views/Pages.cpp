#include "AmbitudeAppKit/Views/Pages.h"

namespace halvo::Pages {

std::vector<PageEntry> all(const Needs&) { return {}; }

}  // namespace halvo::Pages
