#include "AmbitudeCore/Backends/Factory/CoachServiceHooks.h"

#include "AmbitudeCore/Backends/CoachServiceError.h"
#include "CaptureShared/Foundation/Text.h"

namespace halvo::CoachServiceHooks {
namespace {

std::exception_ptr error(CoachServiceError::Kind kind, const char* text) {
  return std::make_exception_ptr(CoachServiceError(kind, text, true));
}

}  // namespace

OpenRouterWireHooks make() {
  return {.displayName = "proxy",
          .decodeServiceError = [](int status, const std::optional<std::string>&, std::string_view) -> std::exception_ptr {
            if (status != 429) return nullptr;
            return error(CoachServiceError::Kind::rateLimited, "the coach service limits its rate");
          },
          .routeHeader = "X-Halvo-Route",
          .decodeRouteDirective = [](const std::optional<std::string>& header, std::string_view) -> std::exception_ptr {
            if (!header || Text::trim(*header) != "local") return nullptr;
            return error(CoachServiceError::Kind::routeDirective, "the coach service routes this turn to the local model");
          }};
}

}  // namespace halvo::CoachServiceHooks
