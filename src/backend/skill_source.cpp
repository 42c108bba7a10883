// Where a skill is fetched from, and what has changed in it.

#include "skill_source.h"

#include "diff.h"
#include "helpers.h"

#include <QStringList>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

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

void tell(QString &text, QChar sign, const QList<QByteArrayView> &lines, qsizetype from, qsizetype count)
{
    for (const QByteArrayView line : lines.mid(from, count)) {
        const QByteArrayView bare = line.endsWith('\n') ? line.chopped(1) : line;
        text += sign + u' ' + visibleText(QString::fromUtf8(bare)) + u'\n';
    }
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
    const QByteArray oldBytes = before.toUtf8();
    const QByteArray newBytes = after.toUtf8();
    const QList<QByteArrayView> oldLines = linesOf(oldBytes);
    const QList<QByteArrayView> newLines = linesOf(newBytes);
    QString text;
    const QList<DiffBlock> blocks = lineDiff(oldLines, newLines);
    for (const DiffBlock &block : blocks) {
        tell(text, u'−', oldLines, block.oldFrom, block.oldCount);
        tell(text, u'+', newLines, block.newFrom, block.newCount);
    }
    return text;
}

} // namespace vesk
