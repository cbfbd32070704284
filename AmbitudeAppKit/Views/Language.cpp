#include "AmbitudeAppKit/Views/Language.h"

#include <QCoreApplication>

#include "CaptureShared/Foundation/Translation.h"

namespace halvo::Language {

void install() {
  setTranslator([](const std::string& source) { return QCoreApplication::translate("Halvo", source.c_str()).toStdString(); });
}

}  // namespace halvo::Language
