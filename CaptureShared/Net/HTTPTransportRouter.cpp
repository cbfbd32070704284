#include "CaptureShared/Net/HTTPTransportRouter.h"

#include "CaptureShared/Net/CurlTransport.h"
#include "CaptureShared/Net/TransportText.h"
#include "CaptureShared/Net/URLParts.h"
#include "CaptureShared/Net/UnixSocketHTTPProtocol.h"

namespace halvo {

std::unique_ptr<HTTPTransportRouter> HTTPTransportRouter::standard(const Environment& environment) {
  auto router = std::make_unique<HTTPTransportRouter>();
  std::optional<std::filesystem::path> certificates;
  if (const auto file = value(environment, "SSL_CERT_FILE"); file && !file->empty()) certificates = *file;
  const auto curl = std::make_shared<CurlTransport>(std::move(certificates));
  router->add("http", curl);
  router->add("https", curl);
  UnixSocketHTTPProtocol::install(*router);
  return router;
}

void HTTPTransportRouter::add(std::string_view scheme, std::shared_ptr<HTTPTransport> transport) {
  transports_.insert_or_assign(std::string(scheme), std::move(transport));
}

HTTPTransport& HTTPTransportRouter::transportFor(const HTTPRequest& request) const {
  const auto parts = URLParts::parse(request.url);
  const auto found = parts ? transports_.find(parts->scheme) : transports_.end();
  if (found == transports_.end()) throw TransportError(TransportText::couldNotConnect("no transport for this URL"));
  return *found->second;
}

HTTPResponse HTTPTransportRouter::send(const HTTPRequest& request, const std::stop_token& stop) {
  return transportFor(request).send(request, stop);
}

HTTPResponse HTTPTransportRouter::stream(const HTTPRequest& request, const std::function<void(std::string_view)>& onBody,
                                         const std::stop_token& stop) {
  return transportFor(request).stream(request, onBody, stop);
}

}  // namespace halvo
