#include "CaptureShared/Net/HTTPTransport.h"

#include "CaptureShared/Foundation/Text.h"

namespace halvo {

std::optional<std::string> HTTPResponse::header(std::string_view name) const {
  for (const auto& [key, value] : headers)
    if (Text::equalsIgnoringCase(key, name)) return value;
  return std::nullopt;
}

}  // namespace halvo
