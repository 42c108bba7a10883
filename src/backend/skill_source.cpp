// Where a skill is fetched from, and what has changed in it.

#include "skill_source.h"

#include "helpers.h"

#include <QStringList>

#include <algorithm>
#include <vector>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

/// Of a comparison: a table of this many cells takes a few milliseconds.
constexpr qsizetype maxCells = 1000000;

QString configuredHost(const char *variable, const QString &usual)
{
    const QString chosen = qEnvironmentVariable(variable);
    return chosen.isEmpty() ? usual : chosen;
}

/// Host and port, the port only where it isn't the usual one.
QString placeOf(const QUrl &address)
{
    const int port = address.port(443);
    return port == 443 ? address.host() : address.host() + u':' + QString::number(port);
}

/// The lengths of the longest common runs of lines from each pair of places on.
std::vector<int> commonLengths(const QStringList &before, const QStringList &after)
{
    const qsizetype width = after.size() + 1;
    std::vector<int> common(size_t((before.size() + 1) * width), 0);
    for (qsizetype i = before.size() - 1; i >= 0; --i) {
        for (qsizetype j = after.size() - 1; j >= 0; --j) {
            int &cell = common[size_t(i * width + j)];
            cell = before[i] == after[j]
                ? common[size_t((i + 1) * width + j + 1)] + 1
                : std::max(common[size_t((i + 1) * width + j)], common[size_t(i * width + j + 1)]);
        }
    }
    return common;
}

QString told(QChar sign, const QString &line)
{
    return sign + u' ' + visibleText(line) + u'\n';
}

QString allLines(QChar sign, const QStringList &lines)
{
    QString text;
    for (const QString &line : lines)
        text += told(sign, line);
    return text;
}

} // namespace

SkillHosts SkillHosts::configured()
{
    return {configuredHost("VESK_SKILL_PAGES", u"github.com"_s),
            configuredHost("VESK_SKILL_FILES", u"raw.githubusercontent.com"_s)};
}

QUrl skillFile(const QString &link, const SkillHosts &hosts)
{
    QUrl address(link);
    require(address.isValid() && address.scheme() == "https"_L1 && address.userInfo().isEmpty() && !address.hasQuery(),
            u"Нужна HTTPS-ссылка на файл SKILL.md в GitHub"_s);
    if (placeOf(address) == hosts.pages) {
        QStringList parts = address.path(QUrl::FullyEncoded).split(u'/', Qt::SkipEmptyParts);
        require(parts.size() >= 5 && parts[2] == "blob"_L1,
                u"Откройте SKILL.md в GitHub и скопируйте ссылку на файл"_s);
        parts.removeAt(2);
        address = QUrl(u"https://"_s + hosts.files + u'/' + parts.join(u'/'));
    }
    require(placeOf(address) == hosts.files && address.path().endsWith(".md"_L1, Qt::CaseInsensitive),
            u"Поддерживается Markdown-файл GitHub"_s);
    address.setFragment({});
    return address;
}

QString skillChanges(const QString &before, const QString &after)
{
    QStringList old = before.split(u'\n');
    QStringList fresh = after.split(u'\n');
    while (!old.isEmpty() && !fresh.isEmpty() && old.first() == fresh.first()) {
        old.removeFirst();
        fresh.removeFirst();
    }
    while (!old.isEmpty() && !fresh.isEmpty() && old.last() == fresh.last()) {
        old.removeLast();
        fresh.removeLast();
    }
    if (old.size() * fresh.size() > maxCells)
        return allLines(u'−', old) + allLines(u'+', fresh);

    const std::vector<int> common = commonLengths(old, fresh);
    const qsizetype width = fresh.size() + 1;
    QString text;
    qsizetype i = 0;
    qsizetype j = 0;
    while (i < old.size() || j < fresh.size()) {
        const bool both = i < old.size() && j < fresh.size();
        if (both && old[i] == fresh[j]) {
            ++i;
            ++j;
        } else if (j == fresh.size()
                   || (both && common[size_t((i + 1) * width + j)] >= common[size_t(i * width + j + 1)])) {
            text += told(u'−', old[i++]);
        } else {
            text += told(u'+', fresh[j++]);
        }
    }
    return text;
}

} // namespace vesk
