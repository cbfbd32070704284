#include "AmbitudeCore/Review/ReasonLabelWriter.h"

#include "CaptureShared/EventLog/JSONLAppend.h"
#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Foundation/JSONValue.h"
#include "CaptureShared/Foundation/Match.h"

namespace halvo::ReasonLabelWriter {

std::filesystem::path defaultURL(const std::filesystem::path& dataRoot) { return dataRoot / "reason-human-labels.jsonl"; }

void write(const Request& request, const std::filesystem::path& url) {
  JSONObject object{{"v", 1}, {"atMs", request.atMs}, {"labeledAt", ISO8601::utcSeconds(request.asOfMs)}};
  if (request.state) object.set("state", *request.state);
  match(
      request.judgement, [&](const ReasonWasRight&) { object.set("judgement", "right"); },
      [&](const ReasonWasWrong& wrong) {
        object.set("judgement", "wrong");
        object.set("rule", rawValue(wrong.rule));
      });
  JSONLAppend::appendValue(object, url);
}

}  // namespace halvo::ReasonLabelWriter
