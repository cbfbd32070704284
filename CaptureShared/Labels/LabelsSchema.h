#pragma once

#include <array>
#include <string_view>

#include "CaptureShared/Signals/SQLiteDB.h"

/// The one table of `labels.sqlite`: what the user says was really going on at a past moment. Rows are added, never changed.
namespace halvo::LabelsSchema {

/// What `label` may hold; the table itself refuses anything else.
inline constexpr std::array<std::string_view, 10> labelValues{"on_task", "on_task_overtime", "rabbit_hole",        "off_task",        "not_aligned",
                                                              "no_task", "break",            "not_using_computer", "switching_tasks", "ambiguous"};

struct AddedColumn {
  std::string_view name, type;
};
/// The columns that the table gained later, in the order they are added.
inline constexpr std::array<AddedColumn, 3> addedColumns{{{"source", "TEXT"}, {"answered_blind", "INTEGER"}, {"user_note", "TEXT"}}};

/// Makes the table where it is missing, then the columns. Every writer calls it first. Throws `SQLiteError`.
void create(SQLiteDB& db);
/// Adds each of the later columns that an old table lacks; its rows have NULL there. Throws `SQLiteError`.
void ensureColumns(SQLiteDB& db);

}  // namespace halvo::LabelsSchema
