// What is wrong with the files of a coder's answer.

#include "code_answer.h"

#include "task_graph.h"

#include <QJsonDocument>
#include <QSet>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype maxGraphAndFiles = TaskGraph::maxNodes + 1;

bool looksLikeList(const QString &path)
{
    return path.isEmpty() || path.contains(u',') || path.contains(u';') || path.contains(u'\n');
}

QString pathOf(const QJsonValue &file)
{
    return file["path"_L1].toString();
}

/// Equal for two spellings of one file: the workspace takes both slashes, and some disks both cases.
QString fileKey(QString path)
{
    return path.replace(u'\\', u'/').toCaseFolded();
}

QString jsonFault(const QString &path, const QString &content)
{
    if (!path.endsWith(".json"_L1, Qt::CaseInsensitive))
        return {};
    QJsonParseError fault;
    QJsonDocument::fromJson(content.toUtf8(), &fault);
    if (fault.error == QJsonParseError::NoError)
        return {};
    return u"Ошибка JSON в "_s + path + u": "_s + fault.errorString();
}

} // namespace

QString expectedPath(const QString &planned, const QJsonArray &files)
{
    if (files.size() < 2 || !looksLikeList(planned))
        return planned;
    const QString first = pathOf(files.first());
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

} // namespace vesk
