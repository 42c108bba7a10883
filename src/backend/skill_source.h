#pragma once

#include <QJsonObject>
#include <QString>
#include <QUrl>

namespace vesk {

/// Where skills come from: "host" or "host:port".
struct SkillHosts {
    QString pages; ///< Shows files as pages; VESK_SKILL_PAGES replaces it.
    QString files; ///< Gives the files themselves; VESK_SKILL_FILES replaces it.

    static SkillHosts configured();
};

/// The most that is taken of a skill, in bytes of UTF-8.
constexpr qsizetype maxSkillBytes = 65536;

/// The address of the Markdown file that a link means. Throws what to paste instead when it is none.
QUrl skillFile(const QString &link, const SkillHosts &hosts);

/// What a new text of a skill brings and what it drops, line by line: "+ new", "− old", each with what can't be seen
/// made visible. Empty for equal texts. Of texts that differ too much all lines are told.
QString skillChanges(const QString &before, const QString &after);

} // namespace vesk
