#include "AmbitudeCore/Classifier/EstimateExtractor.h"

namespace halvo::EstimateExtractor {

const std::string_view systemPrompt = R"prompt(You extract a time estimate from a task declaration, nothing else — no judgment about current activity, just reading comprehension. The text includes when it was declared ("Declared: <date> <time> ET").

Does it state or clearly imply a time budget/limit? Examples that DO: "for 1 hour", "a couple hours", "until 5:00pm", "quick, 10 min", "for a bit" (~15 min), "til I need to leave at 6". Examples that DON'T (no fixed estimate — this is a real, common answer, not a fallback to avoid): open-ended work with no time mentioned, "no rush", "until I'm tired" (vague/self-terminating, not a clock-checkable limit).

If there IS an estimate, compute how many minutes it represents starting from the Declared timestamp in the text (not from now) — resolve relative durations directly ("a couple hours" -> 120), and for an absolute clock time ("until 5:00pm") compute the difference from the Declared time to that clock time, same day.

Respond with STRICT JSON only:
{"has_estimate": true|false, "estimated_minutes": <number or null>, "reason": "one short phrase"})prompt";

}  // namespace halvo::EstimateExtractor
