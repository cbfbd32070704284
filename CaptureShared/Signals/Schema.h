#pragma once

#include <array>
#include <string_view>

#include "CaptureShared/Signals/SQLiteDB.h"

/// The tables of `signals.sqlite`.
namespace halvo::Schema {

/// The battery columns that `ticks` gained later, all INTEGER, in the order they are added.
inline constexpr std::array<std::string_view, 7> batteryTelemetryColumns{
    "battery_voltage_mv",
    "battery_instant_amperage_ma",
    "battery_update_time_s",
    "battery_accumulated_system_load",
    "battery_system_load_accumulator_count",
    "battery_system_power_in_mw",
    "battery_full_charge_capacity_mah",
};

/// Creates `ticks`, `windows` and `events` where they are missing, then the battery columns. Whether all seven are then there.
bool createAll(SQLiteDB& db);
bool ensureBatteryTelemetryColumns(SQLiteDB& db);

}  // namespace halvo::Schema
