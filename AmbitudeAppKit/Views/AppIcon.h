#pragma once

#include <QIcon>

namespace halvo::AppIcon {

/// A lark's arc over a line: drawn, at every size that is asked for.
QIcon icon();

}  // namespace halvo::AppIcon
