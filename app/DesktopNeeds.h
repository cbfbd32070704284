#pragma once

#include <memory>

#include "AmbitudeAppKit/Views/Pages.h"
#include "AmbitudeAppKit/Views/SetupView.h"
#include "app/AgentPlace.h"

namespace halvo {

/// What the desktop application's pages need, from this machine and the present data root.
Pages::Needs desktopNeeds(const std::shared_ptr<AgentPlace>& agents = std::make_shared<AgentPlace>());

/// Setting up a data root on this machine, with the key for what is recorded there.
SetupView::Operations setupOperations();

}  // namespace halvo
