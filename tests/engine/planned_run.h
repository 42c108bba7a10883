#pragma once

#include "engine_fixture.h"

#include "process_containment.h"

#include <QFile>

#include <algorithm>

using namespace Qt::StringLiterals;

/// A run along a given plan, with real programs. Unless told otherwise the coder writes one line into each file,
/// everybody approves, and the coordinator asks nothing.
class PlannedRun : public EngineFixture {
public:
    explicit PlannedRun(const QJsonArray &nodes)
    {
        vesk::ProcessContainment::useGuard(QStringLiteral(VESK_GUARD_PROGRAM));
        model.answer(u"orchestrator"_s, ScriptedProvider::taskSpec());
        model.answer(u"planner"_s, ScriptedProvider::plan(nodes));
        model.respond(u"coordinator"_s,
                      [this](const vesk::LLMRequest &) { return ScriptedProvider::result(coordination); });
        model.respond(u"correctness_reviewer"_s, [this](const vesk::LLMRequest &request) {
            const QJsonValue file = request.input[u"artifact"_s][u"file"_s];
            const int revision = file[u"revision"_s].toInt();
            const bool objects = revision <= objections.value(file[u"path"_s].toString());
            return ScriptedProvider::result(objects
                                                ? ScriptedProvider::verdict(u"REVISE"_s, u"Плохо %1"_s.arg(revision))
                                                : ScriptedProvider::approval());
        });
        model.respond(u"coding"_s, [this](const vesk::LLMRequest &request) {
            return ScriptedProvider::result(written(request.input[u"artifact"_s].toObject()));
        });
    }

    /// By path, the texts that the coder writes, one after the other; the last one is repeated.
    QHash<QString, QStringList> texts;
    /// Another coder: gets the order and how many were made for this path before. Empty answers are left to `texts`.
    std::function<QJsonObject(const QJsonObject &artifact, int nth)> coder;
    /// What the coordinator answers.
    QJsonObject coordination{{u"needs_user"_s, false}, {u"summary"_s, u"Исправляем"_s}};
    /// By path, how many of its first revisions the correctness reviewer objects to.
    QHash<QString, int> objections;

    QJsonObject artifact(const QString &role, qsizetype n = 0) const { return model.artifact(role, n); }
    /// The orders for a path, in order.
    QList<QJsonObject> orders(const QString &path) const
    {
        QList<QJsonObject> list;
        for (qsizetype n = 0; n < model.count(u"coding"_s); ++n) {
            const QJsonObject order = artifact(u"coding"_s, n);
            if (pathIn(order) == path)
                list.append(order);
        }
        return list;
    }
    /// Puts a file into the project's folder behind the system's back.
    bool save(const QString &path, const QByteArray &bytes) const
    {
        QFile file(projectFile(path));
        return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
    }
    QString status(const QString &id) const { return node(id)[u"status"_s].toString(); }
    QJsonArray rows(const QString &table) const { return store.list(table, task()); }
    QJsonArray nodes() const { return state(u"graph"_s).toArray(); }
    /// Answers every question about a program, on the next turn of the event loop.
    void answerPermissions(bool allow)
    {
        QObject::connect(&events, &vesk::EventBus::event, &engine, [this, allow](const QJsonObject &event) {
            if (event[u"type"_s] != u"PermissionRequested"_s)
                return;
            const QString id = event[u"data"_s][u"id"_s].toString();
            QTimer::singleShot(0, &engine, [this, id, allow] { engine.approve(id, allow); });
        });
    }
    /// Runs `work` once, right when the first event with this type and text in its message comes.
    void when(const QString &type, const QString &text, const std::function<void()> &work)
    {
        QObject::connect(&events, &vesk::EventBus::event, &engine,
                         [type, text, work, done = std::make_shared<bool>()](const QJsonObject &event) {
                             if (event[u"type"_s] == type && !*done && event[u"message"_s].toString().contains(text)) {
                                 *done = true;
                                 work();
                             }
                         });
    }
    /// How often the program of a node was run or refused.
    qsizetype calls(const QString &id) const
    {
        const QJsonObject input = node(id)[u"input"_s].toObject();
        const QJsonArray made = rows(u"tool_calls"_s);
        return std::ranges::count_if(made, [&](const QJsonValue &call) {
            const QJsonObject arguments = call[u"arguments"_s].toObject();
            return arguments[u"arguments"_s] == input[u"arguments"_s] && arguments[u"program"_s] == input[u"program"_s];
        });
    }

private:
    static QString pathIn(const QJsonObject &order) { return order[u"node"_s][u"input"_s][u"path"_s].toString(); }
    QJsonObject written(const QJsonObject &order)
    {
        const QString path = pathIn(order);
        const int nth = ordered[path]++;
        const QJsonObject own = coder ? coder(order, nth) : QJsonObject();
        if (!own.isEmpty())
            return own;
        const QStringList known = texts.value(path, {path + u'\n'});
        return ScriptedProvider::file(path, known.at(std::min<qsizetype>(nth, known.size() - 1)));
    }

    QHash<QString, int> ordered;
};

/// A node that writes a file; its id is the path.
inline QJsonObject code(const QString &path, const QStringList &after = {}, QJsonObject input = {})
{
    input[u"path"_s] = path;
    return ScriptedProvider::node(path, u"code"_s, input, after);
}

inline QJsonObject command(const QString &program, const QStringList &arguments)
{
    return {{u"program"_s, program}, {u"arguments"_s, QJsonArray::fromStringList(arguments)}};
}

/// A node that runs a line of the shell.
inline QJsonObject shell(const QString &id, const QString &line, const QStringList &after = {})
{
    return ScriptedProvider::node(id, u"tool"_s, command(u"/bin/sh"_s, {u"-c"_s, line}), after);
}

/// The same as a check, whose failure is repaired.
inline QJsonObject check(const QString &id, const QString &line, const QStringList &after = {})
{
    QJsonObject input = command(u"/bin/sh"_s, {u"-c"_s, line});
    input[u"verification"_s] = true;
    return ScriptedProvider::node(id, u"tool"_s, input, after);
}

/// A coder's answer of several files.
inline QJsonObject filesAnswer(const QList<std::pair<QString, QString>> &files)
{
    QJsonArray list;
    for (const auto &[path, content] : files)
        list.append(QJsonObject{{u"path"_s, path}, {u"content"_s, content}});
    return {{u"files"_s, list}};
}
