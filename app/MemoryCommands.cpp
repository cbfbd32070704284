#include "app/MemoryCommands.h"

#include <cstdio>
#include <iostream>
#include <string>

#include "AmbitudeAppKit/Live/TerminalText.h"
#include "AmbitudeAppKit/Present/MemoryPage.h"
#include "AmbitudeCore/Memory/MemoryWipeLog.h"
#include "CaptureShared/Foundation/Clock.h"
#include "CaptureShared/Foundation/Text.h"
#include "app/CommandOutput.h"

namespace halvo::MemoryCommands {

namespace {

using CommandOutput::fail;
using CommandOutput::print;
using CommandOutput::withDataRoot;
using TerminalText::oneLine;

void printItems(const char* title, const std::vector<MemoryPage::Item>& items) {
  print(std::string("\n") + title + ":");
  for (const auto& item : items) print("  " + oneLine(item.text) + "  (" + item.origin + ")");
}

}  // namespace

int show() {
  return withDataRoot([] {
    const auto page = MemoryPage::read(DataPaths::dataRoot(), Clock::system().nowMs(), Calendar::local());
    if (!page.forgotten.empty()) print(page.forgotten);
    if (!page.notice.empty()) print(oneLine(page.notice));
    print(page.asOf.empty() ? "nothing is remembered yet" : page.asOf);
    if (!page.unorganized.empty()) print("unorganized: " + oneLine(page.unorganized));
    if (!page.asOf.empty()) {
      print("\nthreads:");
      for (const auto& thread : page.threads)
        print("  " + oneLine(thread.name) + " [" + thread.status + "]" + (thread.notes.empty() ? "" : ": " + oneLine(thread.notes)));
      printItems("facts", page.facts);
      printItems("lessons", page.lessons);
    }
    if (!page.preferences.standingMemoryEnabled) print("memory is switched off: Lark is not shown any of it");
    return 0;
  });
}

int forget(bool isSure) {
  return withDataRoot([&] {
    print(MemoryPage::meaningOfForgetting());
    if (!isSure) {
      std::fputs("Type \"forget\" to go on: ", stdout);
      std::fflush(stdout);
      std::string answer;
      if (!std::getline(std::cin, answer) || Text::trim(answer) != "forget") return fail("nothing was forgotten");
    }
    MemoryWipeLog::request(Clock::system().nowMs(), MemoryWipeLog::defaultURL(DataPaths::dataRoot()));
    print("forgotten");
    return 0;
  });
}

}  // namespace halvo::MemoryCommands
