#include "CaptureShared/Net/RequestCheck.h"

#include <algorithm>
#include <stdexcept>

#include "CaptureShared/Net/TransportText.h"

namespace halvo::RequestCheck {
namespace {

bool hasControl(std::string_view text) {
  return std::any_of(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) < ' ' && c != '\t') || c == 0x7F; });
}

}  // namespace

void requireCleanHead(const HTTPRequest& request) {
  bool dirty = hasControl(request.method) || hasControl(request.url) || request.method.find(' ') != std::string::npos;
  for (const auto& [name, value] : request.headers)
    dirty = dirty || name.empty() || hasControl(name) || name.find_first_of(": ") != std::string::npos || hasControl(value);
  if (dirty) throw std::invalid_argument("a request's method, URL or header holds a control character");
}

void deliver(std::string_view piece, int status, const std::function<void(std::string_view)>* onBody, std::string& body) {
  if (onBody && status >= 200 && status <= 299) {
    if (!piece.empty()) (*onBody)(piece);
    return;
  }
  if (body.size() + piece.size() > bodyLimit) throw TransportError(TransportText::badResponse("body over 67108864 bytes"));
  body += piece;
}

}  // namespace halvo::RequestCheck
