#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "CaptureShared/Net/HTTPTransport.h"

/// What every transport checks on its way out and on its way in.
namespace halvo::RequestCheck {

/// Most bytes of a gathered body: far above any answer of ours, and a bound on what a wrong server can make us hold.
inline constexpr std::size_t bodyLimit = std::size_t{64} << 20;

/// Throws `std::invalid_argument` when method, URL, or a header's name or value holds a line break or another control character: such a
/// text would write headers of its own.
void requireCleanHead(const HTTPRequest& request);

/// One piece of a body: to `*onBody` when there is one and the status is a success, else onto `body`. Throws `TransportError` when `body`
/// would pass `bodyLimit`.
void deliver(std::string_view piece, int status, const std::function<void(std::string_view)>* onBody, std::string& body);

}  // namespace halvo::RequestCheck
