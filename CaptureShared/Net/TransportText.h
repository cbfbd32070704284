#pragma once

#include <string>
#include <string_view>

/// The words for a request that never completed, the same for every transport, so that one test tells a timeout from a lost
/// connection wherever an error came from.
namespace halvo::TransportText {

/// "Error Domain=NSURLErrorDomain Code=-1001 "The request timed out."", with ": " and the detail behind it when there is one.
std::string timedOut(std::string_view detail = {});
/// Code -1004, "Could not connect to the server."
std::string couldNotConnect(std::string_view detail = {});
/// Code -1005, "The network connection was lost."
std::string connectionLost(std::string_view detail = {});
/// Code -1011, "The server returned a bad response."
std::string badResponse(std::string_view detail = {});

/// True for every text that `timedOut` makes, also inside a longer text.
bool isTimeout(std::string_view text);

}  // namespace halvo::TransportText
