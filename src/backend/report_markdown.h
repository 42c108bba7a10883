#pragma once

#include <QString>
#include <QVariantList>

namespace vesk {

/// The report of a task (Narrator::report) as Markdown: its first line bold, a heading for each section, lists, what is
/// a path or a command as code, all other signs as they are read. `changed` are files as Differences::files() gives
/// them; they follow as a section of their own.
QString reportAsMarkdown(const QString &request, const QString &report, const QVariantList &changed);

} // namespace vesk
