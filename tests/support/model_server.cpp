#include "model_server.h"

#include "helpers.h"
#include "mock_provider.h"
#include "roles.h"

#include <QHash>
#include <QJsonArray>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

/// Every prompt by its text. What a job appends to a prompt begins with one more line.
const QHash<QString, QString> &rolesByPrompt()
{
    static const QHash<QString, QString> roles = [] {
        registerPrompts();
        QHash<QString, QString> found;
        QStringList codes = builtInRoles();
        codes << u"specialist"_s << u"workflow_reviewer"_s << u"chat"_s << u"chat_router"_s;
        for (const QString &role : std::as_const(codes))
            found.insert(PromptManager::get(role), role);
        return found;
    }();
    return roles;
}

} // namespace

ModelServer::ModelServer(Answer answer)
    : WireServer([answer = std::move(answer)](const WireRequest &request) {
        return WireReply::document(200, WireReply::completion(answer(requestOf(request.json()))));
    })
{
}

LLMRequest ModelServer::requestOf(const QJsonObject &body)
{
    const QString system = body["messages"_L1][0]["content"_L1].toString();
    LLMRequest request{
        {}, {}, system, parseObject(body["messages"_L1][1]["content"_L1].toString()), body["max_tokens"_L1].toInt()};
    const auto &roles = rolesByPrompt();
    for (auto prompt = roles.cbegin(); prompt != roles.cend(); ++prompt) {
        if (system.startsWith(prompt.key()))
            request.role = prompt.value();
    }
    return request;
}

QString ModelServer::unasking(const LLMRequest &request)
{
    QJsonObject answer = MockProvider::respond(request);
    if (request.role == "orchestrator"_L1)
        answer["questions"_L1] = QJsonArray();
    if (request.role == "coordinator"_L1)
        answer["needs_user"_L1] = false;
    return json(answer);
}
