#pragma once

#include <filesystem>

#include "CaptureShared/Foundation/Calendar.h"
#include "CaptureShared/Labels/Clips/RampClipPlan.h"

/// What a recorder would have kept of the invented day.
namespace halvo::InventedRecording {

/// Records a painted screen from 09:40 to 10:58, sealed with a key that this program makes for itself in the account's store. Throws what
/// the recorder and the key store do.
void write(const std::filesystem::path& root, const Calendar& calendar);

/// Finds a frame of it by its number. The application's own way tells files of one hour apart by when they were made, and these are all
/// made now.
RampClipPlan::Locate locate(const std::filesystem::path& root, const Calendar& calendar);

}  // namespace halvo::InventedRecording
