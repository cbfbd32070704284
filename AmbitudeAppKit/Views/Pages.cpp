#include "AmbitudeAppKit/Views/Pages.h"

#include <QCoreApplication>

#include "AmbitudeAppKit/Views/MemoryView.h"

namespace halvo::Pages {

namespace {

QString tr(const char* text) { return QCoreApplication::translate("Pages", text); }

}  // namespace

std::vector<PageEntry> all(const Needs& needs) {
  return {
      {tr("Memory"), tr("What Lark remembers, and your notes"), [needs] { return new MemoryView(needs.root); }},
      {tr("Recordings"), tr("How long recordings are kept"), [needs] { return new RecordingsView(needs.recordings); }},
  };
}

}  // namespace halvo::Pages
