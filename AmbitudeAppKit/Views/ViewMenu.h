#pragma once

#include <functional>

#include "AmbitudeAppKit/Stores/Appearance.h"

class QMenuBar;

namespace halvo::ViewMenu {

/// How the windows look, to choose from: light or dark, and the size of text, which also has the usual keys.
void addTo(QMenuBar& bar, const Appearance& present, std::function<void(const Appearance&)> chosen);

}  // namespace halvo::ViewMenu
