// From the request to what is to be made.

#include "engine_p.h"

#include "questions.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr int maxDelegationRounds = 3;
constexpr qsizetype maxOrderChars = 8000;

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

/// What the engine itself notes in the task: an answer that brings these would switch off checks and limits.
const QStringList &ownSpecKeys()
{
    static const QStringList keys{
        u"answer_only"_s,      u"checks_prepared"_s, u"browser_check_prepared"_s, u"verification_limitation"_s,
        u"final_fix_cycles"_s,
    };
    return keys;
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

    const QStringList questions = askableQuestions(answer["questions"_L1].toArray());
    if (!questions.isEmpty()) {
        QJsonArray options = answer["clarification_options"_L1].toArray();
        if (options.isEmpty())
            options = {u"Использовать предложенный вариант"_s};
        askDecision(questions.join(u'\n'), options, [this] {
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
    for (const QString &key : ownSpecKeys())
        merged.remove(key);
    for (const QString &key : keptSpecKeys())
        merged[key] = spec.contains(key) ? spec[key] : QJsonValue(QJsonValue::Null);
    merged.remove("project_notes"_L1);
    if (spec.contains("project_notes"_L1))
        merged["project_notes"_L1] = std::as_const(spec)["project_notes"_L1];
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

} // namespace vesk
