#pragma once

#include <array>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "AmbitudeAppKit/AgentControl/BackgroundAgentState.h"

namespace halvo {

/// The background agents as a table, and what a person has to know before they read it.
struct ServicesPage {
  struct Row {
    BackgroundAgent agent = BackgroundAgent::captureSupervisor;
    std::string name = {}, state = {};
    std::string pid = {}, lastExit = {}, since = {};  ///< "-" when there is none
    std::string health = {};                          ///< what is wrong; may be empty
    bool operator==(const Row&) const = default;
  };
  static std::array<std::string, 6> headers();

  std::vector<Row> rows = {};
  std::vector<std::string> banners = {};  ///< the weightiest first
  bool operator==(const ServicesPage&) const = default;

  /// `lines` say what stands in the way of a registration.
  static ServicesPage of(std::span<const BackgroundAgentState> states, const std::map<BackgroundAgent, std::string>& lines = {});
};

}  // namespace halvo
