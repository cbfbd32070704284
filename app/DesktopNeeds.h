#pragma once

#include "AmbitudeAppKit/Views/Pages.h"

namespace halvo {

/// What the desktop application's pages need, from this machine and the present data root.
Pages::Needs desktopNeeds();

}  // namespace halvo
