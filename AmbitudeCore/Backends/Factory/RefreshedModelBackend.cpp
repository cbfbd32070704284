#include "AmbitudeCore/Backends/Factory/RefreshedModelBackend.h"

namespace halvo {

RefreshedModelBackend::RefreshedModelBackend(Settings settings)
    : settings_(std::move(settings)), current_(settings_.build(settings_.order)) {
  if (settings_.refresh) thread_ = std::jthread([this](const std::stop_token& stop) { keepFresh(stop); });
}

void RefreshedModelBackend::keepFresh(const std::stop_token& stop) {
  auto order = settings_.order;
  while (!stop.stop_requested()) {
    try {
      auto next = settings_.refresh(order, stop);
      if (next != order) {
        order = std::move(next);
        current_.set(settings_.build(order));
      }
    } catch (const Cancelled&) {
      return;
    }
    settings_.clock.wait(refreshSec, stop);
  }
}

}  // namespace halvo
