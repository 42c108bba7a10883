// The user's own agents, edited; layouts of their picture; and the last change taken back.

#include "agent_team.h"

#include "agent_network.h"
#include "credential_store.h"
#include "helpers.h"
#include "narrator.h"
#include "preferences.h"
#include "roles.h"

#include <utility>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

/// Changed by others, too: of this one single entries are taken back, never the whole.
const auto modelsKey = u"agent_api"_s;

constexpr qsizetype maxLayouts = 20;
constexpr qsizetype maxLayoutChars = 60;

bool isBuiltIn(const QString &agent)
{
    return builtInRoles().contains(agent);
}

QString nameOf(const QJsonArray &agents, const QString &id)
{
    return isBuiltIn(id) ? Narrator::role(id) : oneLine(agentIn(agents, id)["name"_L1].toString());
}

QString about(const QJsonArray &agents, const QString &id, const QString &what)
{
    return u"Агент «"_s + nameOf(agents, id) + u"» "_s + what;
}

} // namespace

AgentTeam::AgentTeam(Store &store, Preferences &preferences)
    : store(store)
    , preferences(preferences)
{
}

QJsonArray AgentTeam::agents() const
{
    return preferences.value(u"custom_agents"_s).toArray();
}

/// Stores new values of some preferences and remembers the old ones. An edit that leaves all as it was does not make
/// the last change forgotten.
void AgentTeam::apply(const QString &report, const QMap<QString, QJsonValue> &values,
                      const QHash<QString, OwnModel> &removed)
{
    QJsonObject next = preferences.document();
    Change change{report, {}, removed};
    for (auto value = values.begin(); value != values.end(); ++value) {
        if (value.key() != modelsKey)
            change.before.insert(value.key(), preferences.value(value.key()));
        next[value.key()] = value.value();
    }
    const bool isNew = next != preferences.document();
    preferences.savePreferences(next);
    if (isNew)
        lastChange = change;
}

void AgentTeam::applyAgents(const QString &report, const QJsonArray &next)
{
    apply(report, {{u"custom_agents"_s, next}});
}

QString AgentTeam::addAgent(const QString &name, const QString &parent, int priority, const QString &rules)
{
    const QString added = newAgentId();
    const QJsonArray next = withAgent(agents(), added, name, parent, priority, rules);
    applyAgents(about(next, added, u"добавлен"_s), next);
    return added;
}

QString AgentTeam::addMediaAgent(const QString &type)
{
    const QString added = newAgentId();
    const QJsonArray next = withMediaAgent(agents(), added, type);
    applyAgents(about(next, added, u"добавлен"_s), next);
    return added;
}

void AgentTeam::configureAgent(const QString &id, const QString &rules, int priority, const QString &kind)
{
    applyAgents(about(agents(), id, u"настроен"_s), withSettings(agents(), id, rules, priority, kind));
}

void AgentTeam::setAgentEnabled(const QString &id, bool enabled)
{
    const QString report = about(agents(), id, enabled ? u"включён"_s : u"отключён"_s);
    if (!isBuiltIn(id)) {
        if (!agentIn(agents(), id).isEmpty())
            applyAgents(report, withEnabled(agents(), id, enabled));
        return;
    }
    QStringList disabled = strings(preferences.value(u"disabled_agents"_s).toArray());
    disabled.removeAll(id);
    if (!enabled)
        disabled.append(id);
    apply(report, {{u"disabled_agents"_s, QJsonArray::fromStringList(disabled)}});
}

void AgentTeam::setAgentTasks(const QString &agent, const QStringList &tasks)
{
    applyAgents(about(agents(), agent, u"получил другие задачи"_s), withTasks(agents(), agent, tasks));
}

void AgentTeam::connectAgents(const QString &from, const QString &to)
{
    if (isBuiltIn(to))
        return linkAgent(from, to);
    if (isBuiltIn(from))
        return linkAgent(to, from);
    const QJsonArray next = withLink(agents(), from, to);
    applyAgents(u"Связь «"_s + nameOf(next, from) + u"» → «"_s + nameOf(next, to) + u"» добавлена"_s, next);
}

void AgentTeam::unlinkAgents(const QString &from, const QString &to)
{
    applyAgents(u"Связь «"_s + nameOf(agents(), from) + u"» → «"_s + nameOf(agents(), to) + u"» убрана"_s,
                withoutLink(agents(), from, to));
}

void AgentTeam::linkAgent(const QString &id, const QString &parent)
{
    const QJsonArray next = withStage(agents(), id, parent);
    applyAgents(about(next, id, parent.isEmpty() ? u"снят с этапа"_s : u"перенесён: "_s + nameOf(next, parent)), next);
}

AgentTeam::OwnModel AgentTeam::ownModelOf(const QString &agent) const
{
    const QJsonObject entry = preferences.value(modelsKey)[agent].toObject();
    return {entry, entry.isEmpty() ? QString() : CredentialStore::read(agentTarget(agent))};
}

void AgentTeam::forget(const OwnModel &own, const QString &agent)
{
    require(own.entry.isEmpty() || CredentialStore::remove(agentTarget(agent)), u"Не удалось удалить ключ агента"_s);
}

void AgentTeam::remember(const OwnModel &own, const QString &agent)
{
    require(own.key.isEmpty() || CredentialStore::save(agentTarget(agent), own.key),
            u"Windows не смог сохранить API-ключ."_s);
}

/// The model connection of a stage is none of the agent's, so that a stage is left alone.
void AgentTeam::removeAgent(const QString &id)
{
    if (isBuiltIn(id))
        return;
    beginLoad(id);
    const OwnModel own = ownModelOf(id);
    QMap<QString, QJsonValue> values{{u"custom_agents"_s, withoutAgent(agents(), id)}};
    QHash<QString, OwnModel> removed;
    QJsonObject models = preferences.value(modelsKey).toObject();
    if (!own.entry.isEmpty()) {
        models.remove(id);
        values.insert(modelsKey, models);
        removed.insert(id, own);
    }
    forget(own, id);
    try {
        apply(about(agents(), id, u"удалён"_s), values, removed);
    } catch (const std::exception &) {
        remember(own, id);
        throw;
    }
}

void AgentTeam::addWorkflowTemplate()
{
    applyAgents(u"Пример команды добавлен"_s, withTemplate(agents()));
}

void AgentTeam::setPositions(const QJsonObject &positions)
{
    apply(positions.isEmpty() ? u"Расположение сброшено"_s : u"Расположение изменено"_s,
          {{u"agent_positions"_s, positions}});
}

void AgentTeam::saveNetwork(const QString &typedName)
{
    require(!typedName.trimmed().isEmpty(), u"Введите название схемы"_s);
    const QString name = shortened(typedName, maxLayoutChars);
    QJsonObject layouts = preferences.value(u"network_layouts"_s).toObject();
    require(layouts.size() < maxLayouts || layouts.contains(name), u"Можно сохранить до 20 схем"_s);
    layouts[name] = preferences.value(u"agent_positions"_s).toObject();
    apply(u"Схема «"_s + oneLine(name) + u"» сохранена"_s, {{u"network_layouts"_s, layouts}});
}

void AgentTeam::loadNetwork(const QString &name)
{
    const QJsonObject layouts = preferences.value(u"network_layouts"_s).toObject();
    require(layouts.contains(name), u"Схема не найдена"_s);
    apply(u"Схема «"_s + oneLine(name) + u"» открыта"_s, {{u"agent_positions"_s, layouts[name]}});
}

void AgentTeam::undoNetwork()
{
    require(!lastChange.report.isEmpty(), u"Нечего отменять"_s);
    QJsonObject next = preferences.document();
    for (auto value = lastChange.before.begin(); value != lastChange.before.end(); ++value)
        next[value.key()] = value.value();
    QJsonObject models = std::as_const(next)[modelsKey].toObject();

    // An added agent that goes again may have been given a model meanwhile.
    const QJsonArray left = std::as_const(next)["custom_agents"_L1].toArray();
    const QJsonArray now = agents();
    QHash<QString, OwnModel> gone;
    for (const QJsonValue &agent : now) {
        const QString id = agent["id"_L1].toString();
        if (!agentIn(left, id).isEmpty())
            continue;
        beginLoad(id);
        gone.insert(id, ownModelOf(id));
        models.remove(id);
    }
    for (auto own = lastChange.ownModels.begin(); own != lastChange.ownModels.end(); ++own) {
        remember(own.value(), own.key());
        models[own.key()] = own->entry;
    }
    if (next.contains(modelsKey) || !models.isEmpty())
        next[modelsKey] = models;
    preferences.savePreferences(next);
    lastChange = {};
    // Last: a key that was taken away too early could not be given back.
    for (auto own = gone.begin(); own != gone.end(); ++own)
        forget(own.value(), own.key());
    Q_EMIT changed();
}

} // namespace vesk
