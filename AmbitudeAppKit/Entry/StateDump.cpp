#include "AmbitudeAppKit/Entry/StateDump.h"

#include <system_error>

#include "CaptureShared/DataRoot/DataPaths.h"
#include "CaptureShared/EventLog/ClassifierLogTail.h"
#include "CaptureShared/Intention/CurrentIntention.h"
#include "CaptureShared/Intention/CurrentTask.h"

namespace halvo::StateDump {

void run(const std::function<void(const std::string&)>& print, const Calendar& calendar) {
  print(std::string("data volume mounted: ") + (DataPaths::isDataRootAvailable() ? "true" : "false"));
  print("--- current intention ---");
  const auto body = CurrentTask::read();
  if (const auto intention = body ? CurrentIntention::parse(*body) : std::nullopt) {
    print("task:   " + intention->task);
    print("declared: " + intention->declared.value_or("-"));
    print("estimate: " + intention->estimate.value_or("-"));
    print("why:    " + intention->why.value_or("-"));
  } else {
    print("(no intention set)");
  }
  print("--- recent check-ins (newest first) ---");
  const auto recent = recentCheckIns(DataPaths::checkerLog());
  for (const auto& checkIn : recent) print(line(checkIn, calendar));
  if (recent.empty()) print("(none)");
}

std::vector<CheckIn> recentCheckIns(const std::filesystem::path& log) {
  std::vector<CheckIn> newestFirst;
  try {
    const auto lines = ClassifierLogTail::lastLines(log, maxTailBytes);
    for (auto text = lines.rbegin(); text != lines.rend() && newestFirst.size() < recentCount; ++text)
      if (auto checkIn = CheckIn::decode(*text, static_cast<std::size_t>(lines.rend() - text))) newestFirst.push_back(std::move(*checkIn));
  } catch (const std::system_error&) {
    // Nothing judged yet, or not for us to read: both show as "(none)".
  }
  return newestFirst;
}

std::string line(const CheckIn& checkIn, const Calendar& calendar) {
  auto text = (checkIn.atMs ? calendar.monthDay2HourMinute(*checkIn.atMs) : checkIn.atRaw) + "  " + checkIn.state + "  [" +
              checkIn.frontmostApp.value_or("-") + "]";
  if (checkIn.coachMove) text += " · " + *checkIn.coachMove;
  if (checkIn.coachMessage) text += " · “" + *checkIn.coachMessage + "”";
  return text;
}

}  // namespace halvo::StateDump
