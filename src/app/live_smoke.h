#pragma once

#include <QString>

namespace vesk {

/// "--live-smoke": a whole run against the Alem Plus endpoint, without interface, into `folder`. `temporaryFolder`
/// holds its database. The exit code: 0 completed, 1 any other end, 2 no folder or no stored key, 3 cancelled after 900
/// s.
int runLiveSmoke(const QString &folder, const QString &temporaryFolder);

} // namespace vesk
