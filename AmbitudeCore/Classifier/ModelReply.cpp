#include "AmbitudeCore/Classifier/ModelReply.h"

#include "CaptureShared/Foundation/Text.h"
#include "CaptureShared/Privacy/SecretRedaction.h"
#include "CaptureShared/Privacy/SensitiveIdentifierRedaction.h"

namespace halvo::ModelReply {

std::string excerpt(std::string_view reply) {
  const auto redacted =
      SecretRedaction::redact(SensitiveIdentifierRedaction::redact(reply, SensitiveIdentifierRedaction::Scope::outbound).first);
  return Text::capped(Text::trim(Text::newlinesToBlanks(redacted)), excerptCap);
}

}  // namespace halvo::ModelReply
