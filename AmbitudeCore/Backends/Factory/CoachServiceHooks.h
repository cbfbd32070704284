#pragma once

#include "AmbitudeCore/Backends/Remote/OpenRouterWireHooks.h"

/// What the coach service says beyond the wire shape it shares with the routing service.
namespace halvo::CoachServiceHooks {

/// Status 429 is a `CoachServiceError` of kind `rateLimited`, and the route "local" one of kind `routeDirective`.
OpenRouterWireHooks make();

}  // namespace halvo::CoachServiceHooks
