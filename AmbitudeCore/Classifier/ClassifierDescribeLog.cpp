#include "AmbitudeCore/Classifier/ClassifierDescribeLog.h"

#include "CaptureShared/EventLog/JSONLAppend.h"
#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Privacy/SecretRedaction.h"
#include "CaptureShared/Privacy/SensitiveIdentifierRedaction.h"

namespace halvo::ClassifierDescribeLog {

std::filesystem::path url(const std::filesystem::path& dataRoot) { return dataRoot / "classifier-describe.jsonl"; }

void append(std::int64_t atMs, std::string_view description, const std::filesystem::path& file) {
  const auto text =
      SecretRedaction::redact(SensitiveIdentifierRedaction::redact(description, SensitiveIdentifierRedaction::Scope::outbound).first);
  JSONLAppend::appendValue(JSONValue(JSONObject{{"at_ms", atMs}, {"text", text}}), file);
}

}  // namespace halvo::ClassifierDescribeLog
