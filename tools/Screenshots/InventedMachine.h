#pragma once

#include <filesystem>

#include "AmbitudeAppKit/Views/Pages.h"
#include "CaptureShared/Foundation/Calendar.h"

/// The machine that the invented day was spent at: its programs, logs, recordings, calls and models.
namespace halvo::InventedMachine {

/// Writes what lies in the data root and in the home folder, and turns the programs' signs of life back to the invented day.
void write(const std::filesystem::path& root, const Calendar& calendar);

/// Puts it in the place of this machine in what the pages are told. The names and words are still the program's own.
void putInto(Pages::Needs& needs, const Calendar& calendar);

}  // namespace halvo::InventedMachine
