// Which files go into a commit.

#include "commit_plan.h"

#include "helpers.h"
#include "path_rules.h"

#include <QHash>

#include <algorithm>
#include <array>
#include <utility>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype maxSubject = 72;
constexpr qsizetype maxFault = 2000;

/// Two letters, of the index and of the disk; more where git has several lines for a path.
using States = QHash<QString, QString>;

States statesOf(const QByteArray &status, const QString &prefix)
{
    States states;
    const QList<QByteArray> lines = status.split('\0');
    for (const QByteArray &line : lines) {
        const QString path = QString::fromUtf8(line.sliced(std::min<qsizetype>(3, line.size())));
        if (line.startsWith("!! ") && path.endsWith(u'/') && prefix.startsWith(path))
            states[QString()] = u"!!"_s; // The project itself is left out of the repository.
        else if (line.size() > 3 && path.startsWith(prefix))
            states[path.sliced(prefix.size())] += QString::fromLatin1(line.first(2));
    }
    return states;
}

/// Git names an ignored folder, and a repository in the repository, instead of what lies in it.
QString stateOf(const States &states, const QString &path)
{
    if (states.contains(QString()))
        return states.value(QString());
    for (qsizetype slash = path.indexOf(u'/'); slash > 0; slash = path.indexOf(u'/', slash + 1)) {
        const QString above = states.value(path.first(slash + 1));
        if (!above.isEmpty())
            return above == "??"_L1 ? u"nested"_s : above;
    }
    return states.value(path);
}

QString reasonAgainst(const QString &state)
{
    static const QStringList conflicts{u"DD"_s, u"AU"_s, u"UD"_s, u"UA"_s, u"DU"_s, u"AA"_s, u"UU"_s};
    if (state == "!!"_L1)
        return u"исключён .gitignore"_s;
    if (state == "nested"_L1)
        return u"лежит в другом репозитории"_s;
    if (conflicts.contains(state))
        return u"конфликт слияния"_s;
    const bool isStaged = state.front() != u' ' && state.front() != u'?';
    if (isStaged && state.back() != u' ')
        return u"подготовлен в git в другом виде, чем лежит на диске"_s;
    return {};
}

CommitPlan::File fileOf(const QString &path, const QString &state)
{
    using Change = CommitPlan::Change;
    const bool isNew = state == "??"_L1;
    const Change change = isNew || state.contains(u'A') ? Change::Added
        : state.contains(u'D')                          ? Change::Deleted
                                                        : Change::Changed;
    return {path, change, isNew};
}

} // namespace

CommitPlan commitPlan(const QStringList &paths, const QByteArray &status, const QString &prefix,
                      const QStringList &unwatched)
{
    const States states = statesOf(status, prefix);
    CommitPlan plan;
    for (const QString &each : paths) {
        const QString path = slashed(each);
        const QString state = stateOf(states, path);
        if (state.isEmpty()) {
            if (unwatched.contains(path))
                plan.left.append({path, u"git не следит за этим файлом"_s});
            continue;
        }
        const QString reason = reasonAgainst(state);
        if (reason.isEmpty())
            plan.files.append(fileOf(path, state));
        else
            plan.left.append({path, reason});
    }
    return plan;
}

QStringList unwatched(QStringList paths, const QByteArray &listed)
{
    // A letter and a blank before each: "H" for what is looked at, a small one or "S" for what is to be passed over.
    const QList<QByteArray> lines = listed.split('\0');
    for (const QByteArray &line : lines) {
        if (line.size() > 2 && line.front() != 'S' && QChar::isUpper(uchar(line.front())))
            paths.removeAll(QString::fromUtf8(line.sliced(2)));
    }
    return paths;
}

QString gitFault(const QString &printed)
{
    const QString nobody = u"Git не знает вашего имени: задайте user.name и user.email."_s;
    const std::array<std::pair<QString, QString>, 8> known{{
        {u"not a git repository"_s, u"Папка проекта не в репозитории git."_s},
        {u"dubious ownership"_s, u"Репозиторий принадлежит другому пользователю."_s},
        {u"index.lock"_s, u"Репозиторий занят другой программой."_s},
        {u"empty ident"_s, nobody},
        {u"Please tell me who you are"_s, nobody},
        {u"unable to auto-detect email"_s, nobody},
        {u"no email was given"_s, nobody},
        {u"partial commit"_s, u"В репозитории не завершено слияние или перенос."_s},
    }};
    const auto reason = std::ranges::find_if(known, [&](const auto &each) { return printed.contains(each.first); });
    return withOutput(reason == known.end() ? u"Git отказал."_s : reason->second, printed);
}

QString withOutput(const QString &sentence, const QString &printed)
{
    // A hook's reason stands at the end.
    const QString text = visibleLines(printed.trimmed().right(maxFault));
    return text.isEmpty() ? sentence : sentence + u'\n' + text;
}

QString commitMessage(const QString &request, const QString &report)
{
    const QString line = oneLine(request);
    const QString subject = line.size() > maxSubject ? line.left(maxSubject - 1) + u'…' : line;
    return subject + u"\n\n"_s + report.trimmed();
}

} // namespace vesk
