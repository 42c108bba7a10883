#pragma once

class QString;

namespace vesk {

// Folders of a project, by their names, that hold what nobody wrote there.

/// Of version control.
bool holdsHistory(const QString &name);

/// Of packages that were installed.
bool holdsPackages(const QString &name);

/// Whatever tools make for themselves: the same, and what builds, caches and editors leave.
bool isMachineMade(const QString &name);

} // namespace vesk
