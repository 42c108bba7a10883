// What is wrong with the files of a coder's answer.

#include "code_answer.h"

#include "data_syntax.h"
#include "path_rules.h"
#include "task_graph.h"

#include <QSet>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype maxGraphAndFiles = TaskGraph::maxNodes + 1;
constexpr qsizetype maxQuotedChars = 200;

bool looksLikeList(const QString &path)
{
    return path.isEmpty() || path.contains(u',') || path.contains(u';') || path.contains(u'\n');
}

QString pathOf(const QJsonValue &file)
{
    return file["path"_L1].toString();
}

/// Equal for two spellings of one file: the workspace takes both slashes, and some disks both cases.
QString fileKey(const QString &path)
{
    return slashed(path).toCaseFolded();
}

QString jsonFault(const QString &path, const QString &content)
{
    if (!path.endsWith(".json"_L1, Qt::CaseInsensitive))
        return {};
    const QJsonParseError fault = jsonError(plainJson(path, content).toUtf8());
    if (fault.error == QJsonParseError::NoError)
        return {};
    return u"Ошибка JSON в "_s + path + u": "_s + fault.errorString();
}

} // namespace

QString expectedPath(const QString &planned, const QJsonArray &files)
{
    if (files.size() < 2 || !looksLikeList(planned))
        return planned;
    const QString first = slashed(pathOf(files.first()));
    return planned.isEmpty() || planned.contains(first) ? first : planned;
}

QString filesFault(const QJsonArray &files, const FileBounds &bounds)
{
    if (files.size() + bounds.nodes > maxGraphAndFiles)
        return u"Слишком много файлов в одном этапе"_s;

    QSet<QString> foreign;
    for (const QString &path : bounds.foreign)
        foreign.insert(fileKey(path));
    QSet<QString> seen;
    for (const QJsonValue &file : files) {
        const QString path = pathOf(file);
        QString fault = bounds.pathFault(path);
        if (fault.isEmpty())
            fault = jsonFault(path, file["content"_L1].toString());
        if (fault.isEmpty() && seen.contains(fileKey(path)))
            fault = u"Повторяющийся путь файла: "_s + path;
        if (fault.isEmpty() && foreign.contains(fileKey(path)))
            fault = u"Файл уже поручен другому узлу: "_s + path;
        if (!fault.isEmpty())
            return fault;
        seen.insert(fileKey(path));
    }
    return fileAt(bounds.expected, files).isEmpty() ? u"В ответе отсутствует ожидаемый файл: "_s + bounds.expected
                                                    : QString();
}

QJsonObject fileAt(const QString &path, const QJsonArray &files)
{
    const auto found = std::ranges::find_if(files, [&](const QJsonValue &file) { return pathOf(file) == path; });
    return found == files.end() ? QJsonObject() : QJsonValue(*found).toObject();
}

bool offersEdits(const QJsonObject &order)
{
    return order["previous_file"_L1]["content_truncated"_L1].toBool();
}

Edited edited(const QString &path, const QString &text, const QJsonArray &edits)
{
    struct Place {
        qsizetype at;
        qsizetype length;
        QString text;
    };
    QList<Place> places;
    for (qsizetype i = 0; i < edits.size(); ++i) {
        const auto fault = [&](const QString &reason) {
            const QString old = edits.at(i)["old"_L1].toString().left(maxQuotedChars);
            return Edited{{}, u"Правка %1 файла %2 %3: «%4»"_s.arg(QString::number(i + 1), path, reason, old)};
        };
        const QString old = edits.at(i)["old"_L1].toString();
        const qsizetype at = old.isEmpty() ? -1 : text.indexOf(old);
        if (at < 0)
            return fault(u"не подходит, такого текста в нём нет"_s);
        if (text.indexOf(old, at + 1) >= 0)
            return fault(u"неоднозначна, этот текст встречается в нём несколько раз"_s);
        places.append({at, old.size(), edits.at(i)["new"_L1].toString()});
    }

    std::ranges::sort(places, {}, &Place::at);
    Edited result;
    qsizetype done = 0;
    for (const Place &place : std::as_const(places)) {
        if (place.at < done)
            return {{}, u"Правки файла %1 пересекаются: «%2»"_s.arg(path, text.mid(place.at, maxQuotedChars))};
        result.text += QStringView(text).sliced(done, place.at - done);
        result.text += place.text;
        done = place.at + place.length;
    }
    result.text += QStringView(text).sliced(done);
    return result;
}

} // namespace vesk
