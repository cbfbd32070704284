#include "AmbitudeAppKit/Views/Pages.h"

#include <QCoreApplication>

#include "AmbitudeAppKit/Views/DiagnosticsView.h"
#include "AmbitudeAppKit/Views/ExportView.h"
#include "AmbitudeAppKit/Views/MemoryView.h"
#include "AmbitudeAppKit/Views/PrivacyView.h"

namespace halvo::Pages {

namespace {

QString tr(const char* text) { return QCoreApplication::translate("Pages", text); }

}  // namespace

std::vector<PageEntry> all(const Needs& needs) {
  return {
      {tr("Review"), tr("Past moments, answered by you who were there"), [needs] { return new ReviewView(needs.review); }},
      {tr("Memory"), tr("What Lark remembers, and your notes"), [needs] { return new MemoryView(needs.root); }},
      {tr("Privacy"), tr("What is never captured, and what left the machine"), [needs] { return new PrivacyView(needs.root); }},
      {tr("Recordings"), tr("Whether your screen is recorded, and how long that is kept"), [needs] { return new RecordingsView(needs.recordings); }},
      {tr("Model"), tr("The model that looks at your screen"), [needs] { return new ModelView(needs.model); }},
      {tr("Export"), tr("A stretch of your history as files"), [needs] { return new ExportView({needs.root, needs.calendar, needs.nowMs}); }},
      {tr("Services"), tr("The agents that work in the background"), [needs] { return new ServicesView(needs.services); }},
      {tr("Diagnostics"), tr("A report for someone who helps"), [needs] { return new DiagnosticsView(needs.diagnostics); }},
  };
}

}  // namespace halvo::Pages
