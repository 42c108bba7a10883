#pragma once

#include <QString>

namespace vesk {

/// Why a task ended, for its user: the technical texts of workspace, plan, contracts and gates in Russian, with what
/// they name. Any other text, such as one that is Russian already, comes back unchanged. Records keep the original.
QString reasonText(const QString &error);

} // namespace vesk
