#include "scripted_provider.h"

#include "helpers.h"

#include <QJsonArray>

#include <algorithm>

using namespace Qt::StringLiterals;
using namespace vesk;

LLMResult ScriptedProvider::result(const QJsonObject &object)
{
    return text(json(object));
}

LLMResult ScriptedProvider::text(const QString &content)
{
    LLMResult result;
    result.content = content;
    result.promptTokens = 10;
    result.completionTokens = 5;
    return result;
}

QJsonObject ScriptedProvider::approval()
{
    return {{u"verdict"_s, u"APPROVE"_s},
            {u"issues"_s, QJsonArray()},
            {u"required_changes"_s, QJsonArray()},
            {u"confidence"_s, 0.9}};
}

QJsonObject ScriptedProvider::verdict(const QString &verdict, const QString &issue)
{
    return {{u"verdict"_s, verdict},
            {u"issues"_s, QJsonArray{issue}},
            {u"required_changes"_s, QJsonArray{issue}},
            {u"confidence"_s, 0.9}};
}

QJsonObject ScriptedProvider::file(const QString &path, const QString &content)
{
    return {{u"files"_s, QJsonArray{QJsonObject{{u"path"_s, path}, {u"content"_s, content}}}}};
}

QJsonObject ScriptedProvider::node(const QString &id, const QString &kind, const QJsonObject &input,
                                   const QStringList &dependencies)
{
    return {{u"id"_s, id},
            {u"title"_s, u"Узел "_s + id},
            {u"kind"_s, kind},
            {u"input"_s, input},
            {u"dependencies"_s, QJsonArray::fromStringList(dependencies)}};
}

QJsonObject ScriptedProvider::plan(const QJsonArray &nodes)
{
    return {{u"nodes"_s, nodes}};
}

QJsonObject ScriptedProvider::taskSpec(const QJsonArray &questions)
{
    return {{u"title"_s, u"Задача"_s},
            {u"requirements"_s, QJsonArray{u"Работает"_s}},
            {u"acceptance_criteria"_s, QJsonArray{u"Работает"_s}},
            {u"questions"_s, questions}};
}

QJsonObject ScriptedProvider::answerOnly(const QString &summary)
{
    return with(taskSpec(), {{u"action"_s, u"ANSWER"_s}, {u"summary"_s, summary}});
}

QJsonObject ScriptedProvider::with(QJsonObject object, const QJsonObject &more)
{
    for (auto entry = more.begin(); entry != more.end(); ++entry)
        object[entry.key()] = *entry;
    return object;
}

bool ScriptedProvider::release(const QString &role)
{
    const auto found = std::ranges::find_if(
        waiting, [&](const Waiting &entry) { return role.isEmpty() || entry.request.role == role; });
    if (found == waiting.end())
        return false;
    const Waiting entry = std::move(*found);
    waiting.erase(found);
    entry.callback(next(entry.request));
    return true;
}

void ScriptedProvider::releaseAll()
{
    holding = false;
    while (release()) { }
}

qsizetype ScriptedProvider::count(const QString &role) const
{
    return std::ranges::count_if(requests, [&](const LLMRequest &request) { return request.role == role; });
}

QJsonObject ScriptedProvider::input(const QString &role, qsizetype n) const
{
    for (const LLMRequest &request : requests) {
        if (request.role == role && n-- == 0)
            return request.input;
    }
    return {};
}

QStringList ScriptedProvider::asked() const
{
    QStringList roles;
    for (const LLMRequest &request : requests)
        roles.append(request.role);
    return roles;
}

void ScriptedProvider::request(const LLMRequest &request, std::function<void(LLMResult)> callback)
{
    requests.append(request);
    if (holding) {
        waiting.push_back({request, std::move(callback)});
        return;
    }
    QTimer::singleShot(0, this, [this, request, callback = std::move(callback), noted = generation] {
        if (noted == generation)
            callback(next(request));
    });
}

void ScriptedProvider::cancelAll()
{
    ++cancellations;
    if (deaf)
        return;
    ++generation;
    waiting.clear();
}

LLMResult ScriptedProvider::next(const LLMRequest &request)
{
    const auto script = scripts.find(request.role);
    if (script == scripts.end() || script->empty())
        return result(MockProvider::respond(request));
    const Responder responder = script->front();
    if (script->size() > 1)
        script->pop_front();
    return responder(request);
}
