// From the request to what is to be made, and the one channel through which the run asks the user something.

#include "engine_p.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr int maxDelegationRounds = 3;
constexpr qsizetype maxOrderChars = 8000;
constexpr qsizetype maxOptions = 3;
constexpr qsizetype maxOptionChars = 180;
constexpr qsizetype maxRoutineQuestionChars = 179;

/// What the chief agent's answer doesn't replace.
const QStringList &keptSpecKeys()
{
    static const QStringList keys{
        u"original_request"_s,
        u"build_command"_s,
        u"available_executables"_s,
        u"existing_files"_s,
        u"media"_s,
        u"media_analysis"_s,
        u"delegation_results"_s,
        u"automatic_routing"_s,
        u"media_tools"_s,
        u"available_mcp_tools"_s,
        u"available_specialists"_s,
        u"disabled_agents"_s,
        u"clarification"_s,
        u"decisions"_s,
    };
    return keys;
}

QJsonArray cleanOptions(const QJsonArray &options)
{
    QJsonArray clean;
    for (const QJsonValue &option : options) {
        if (clean.size() < maxOptions && !option.toString().trimmed().isEmpty())
            clean.append(option.toString().left(maxOptionChars));
    }
    return clean;
}

/// A question in the form in which two of them are the same.
QString questionKey(const QJsonValue &question)
{
    return question.toString().simplified().toLower();
}

/// Whether to go on with repairs is no question for the user.
bool isRoutineQuestion(const QString &topic, const QString &key)
{
    if ((topic != "code"_L1 && topic != "final"_L1) || key.size() > maxRoutineQuestionChars)
        return false;
    return key == u"продолжить?"_s || (key.contains(u"продолж"_s) && key.contains(u"исправ"_s));
}

} // namespace

void Engine::intake()
{
    enqueue(u"orchestrator"_s, {}, [this](const QJsonObject &answer) { takeSpec(answer); });
}

void Engine::takeSpec(const QJsonObject &answer)
{
    if (takeDelegations(answer))
        return;
    mergeSpec(answer);

    const QJsonArray questions = answer["questions"_L1].toArray();
    if (!questions.isEmpty()) {
        QJsonArray options = answer["clarification_options"_L1].toArray();
        if (options.isEmpty())
            options = {u"Использовать предложенный вариант"_s};
        askDecision(strings(questions).join(u'\n'), options, [this] {
            stage(Phase::intake);
            intake();
        });
        return;
    }

    if (automaticRouting)
        followAction(answer);
    else
        planning();
}

/// Sends the chief's new orders to the specialists; true when there were any, and intake runs again afterwards.
bool Engine::takeDelegations(const QJsonObject &answer)
{
    if (!automaticRouting)
        return false;
    const QJsonObject pending = newDelegations(answer["delegations"_L1].toArray());
    if (pending.isEmpty())
        return false;

    ++delegationRounds;
    require(delegationRounds <= maxDelegationRounds,
            u"Главный не завершил делегирование за три раунда. Результаты сохранены."_s);
    delegations = pending;
    workflowResults.remove(u"orchestrator"_s);
    publish(u"AutomaticCorrection"_s, u"Главный передаёт поручения выбранным помощникам"_s);
    runWorkflow(u"orchestrator"_s, {{u"request"_s, spec["original_request"_L1]}}, [this](const QJsonArray &results) {
        require(!results.isEmpty(), u"Выбранные помощники не могут выполнить это поручение с текущими вложениями"_s);
        QJsonArray all = spec["delegation_results"_L1].toArray();
        for (const QJsonValue &result : results)
            all.append(result);
        spec["delegation_results"_L1] = all;
        delegations = {};
        intake();
    });
    return true;
}

/// Agent id to order, without the orders that were given before.
QJsonObject Engine::newDelegations(const QJsonArray &orders)
{
    const QJsonArray specialists = spec["available_specialists"_L1].toArray();
    QJsonObject pending;
    for (const QJsonValue &order : orders) {
        const QString agent = order["agent_id"_L1].toString();
        const QString task = order["task"_L1].toString().trimmed().left(maxOrderChars);
        require(!task.isEmpty(), u"Главный не указал задание помощнику"_s);
        require(std::ranges::any_of(specialists,
                                    [&](const QJsonValue &known) { return known["id"_L1].toString() == agent; }),
                u"Главный выбрал недоступного агента: "_s + agent);
        const QString given = agent + digest(task.toUtf8());
        if (seenDelegations.contains(given))
            continue;
        seenDelegations.insert(given);
        pending[agent] = task;
    }
    return pending;
}

void Engine::mergeSpec(const QJsonObject &answer)
{
    QJsonObject merged = answer;
    for (const QString &key : keptSpecKeys())
        merged[key] = spec.contains(key) ? spec[key] : QJsonValue(QJsonValue::Null);
    spec = merged;
}

void Engine::followAction(const QJsonObject &answer)
{
    const QString action = answer["action"_L1].toString();
    if (action == "ANSWER"_L1) {
        const QString summary = answer["summary"_L1].toString();
        require(!summary.trimmed().isEmpty(), u"Главный не вернул ответ"_s);
        spec["answer_only"_L1] = true;
        completeRun(summary, {});
    } else if (action == "EXECUTE"_L1) {
        const QJsonArray nodes = answer["nodes"_L1].toArray();
        require(!nodes.isEmpty(), u"Главный не вернул действия"_s);
        plan = {{u"nodes"_s, nodes}, {u"revision"_s, 1}};
        activatePlan();
    } else {
        planning();
    }
}

void Engine::askDecision(QString question, QJsonArray options, std::function<void()> continuation)
{
    require(decision.isEmpty(), u"Другое уточнение ещё ожидает ответа."_s);
    question = question.trimmed();
    require(!question.isEmpty(), u"Главный агент не сформулировал вопрос."_s);

    decisionReturnPhase = phase;
    decision = {
        {u"id"_s, id()},
        {u"question"_s, question},
        {u"options"_s, cleanOptions(options)},
        {u"stage"_s, phase},
    };
    decisionContinuation = std::move(continuation);
    stage(Phase::clarification);
}

void Engine::clarify(const QString &answer)
{
    require(phase == Phase::clarification && !decision.isEmpty(), u"Нет ожидающего уточнения."_s);
    require(!answer.trimmed().isEmpty(), u"Введите ответ."_s);
    store.put(u"messages"_s, id(), taskId, {{u"role"_s, u"user"_s}, {u"content"_s, answer}, {u"time"_s, now()}});

    QJsonObject answered = decision;
    answered["answer"_L1] = answer;
    QJsonArray decisions = spec["decisions"_L1].toArray();
    decisions.append(answered);
    spec["decisions"_L1] = decisions;
    spec["clarification"_L1] = answer;

    // In front of whatever came in while the question was open.
    deferred.push_front(std::exchange(decisionContinuation, {}));
    decision = {};
    step([this] { stage(decisionReturnPhase); });
    runDeferred();
    step([this] {
        pump();
        persist();
    });
}

void Engine::consult(QString topic, QJsonObject context, std::function<void()> continuation)
{
    context["topic"_L1] = topic;
    enqueue(u"coordinator"_s, context, [this, topic, continuation](const QJsonObject &answer) {
        const QString key = questionKey(answer["question"_L1]);
        const QJsonValue needsUser = answer["needs_user"_L1];
        if (isRoutineQuestion(topic, key) || alreadyAsked(key) || (needsUser.isBool() && !needsUser.toBool())) {
            publish(u"AutomaticCorrection"_s, answer["summary"_L1].toString());
            if (busy())
                continuation();
            return;
        }
        askDecision(answer["question"_L1].toString(), answer["options"_L1].toArray(), continuation);
    });
}

bool Engine::alreadyAsked(const QString &key) const
{
    const QJsonArray decisions = spec["decisions"_L1].toArray();
    return !key.isEmpty() && std::ranges::any_of(decisions, [&](const QJsonValue &past) {
        return questionKey(past["question"_L1]) == key;
    });
}

void Engine::approve(const QString &id, bool allow)
{
    answerPermission(id, allow);
}

} // namespace vesk
