// Skills: texts of others that steer an agent. What was loaded stays as it was, can be read, and gives no rights.

#include "agent_team.h"

#include "agent_network.h"
#include "helpers.h"
#include "preferences.h"
#include "roles.h"
#include "skill_source.h"
#include "store.h"

#include <QNetworkReply>
#include <QNetworkRequest>

#include <algorithm>
#include <chrono>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr auto longestLoad = std::chrono::seconds(20);

/// Of the row in "settings" that tells about the last load.
QString loadId(const QString &agent)
{
    return u"skill:"_s + agent;
}

QNetworkRequest skillRequest(const QUrl &address)
{
    QNetworkRequest request(address);
    request.setTransferTimeout(longestLoad);
    return request;
}

} // namespace

QJsonObject AgentTeam::skillRecord(const QString &agent) const
{
    return builtInRoles().contains(agent) ? preferences.value(u"role_skills"_s)[agent].toObject()
                                          : agentIn(agents(), agent);
}

/// From now on every load that is on its way comes too late.
quint64 AgentTeam::beginLoad(const QString &agent)
{
    if (const QPointer<QNetworkReply> old = loads.take(agent))
        QMetaObject::invokeMethod(old, &QNetworkReply::abort, Qt::QueuedConnection);
    return ++skillGeneration[agent];
}

void AgentTeam::loadAgentSkill(const QString &agent, const QString &typedLink)
{
    require(builtInRoles().contains(agent) || !agentIn(agents(), agent).isEmpty(), u"Агент не найден"_s);
    const QString link = typedLink.trimmed();
    if (link.isEmpty()) {
        beginLoad(agent);
        return saveSkill(agent, {}, {});
    }
    const QUrl address = skillFile(link, SkillHosts::configured());
    const quint64 noted = beginLoad(agent);
    QNetworkReply *reply = skillNetwork.get(skillRequest(address));
    loads.insert(agent, reply);
    collect(reply, maxSkillBytes, longestLoad, [this, agent, link, address, noted](const ServerReply &answer) {
        if (skillGeneration.value(agent) != noted)
            return;
        loads.remove(agent);
        QString failure;
        try {
            takeSkill(agent, link, address, answer);
        } catch (const std::exception &refusal) {
            failure = textOf(refusal);
        }
        Q_EMIT concluded(failure);
    });
}

void AgentTeam::takeSkill(const QString &agent, const QString &link, const QUrl &address, const ServerReply &answer)
{
    require(answer.networkError == 0 && answer.status == 200 && !answer.body.isEmpty()
                && answer.body.size() <= maxSkillBytes,
            u"Не удалось загрузить skill. Нужен публичный Markdown до 64 КБ; прежний skill сохранён."_s);
    const QString text = QString::fromUtf8(answer.body);
    // A byte order mark alone is no text, and other encodings grow when they are decoded.
    require(!text.isEmpty() && text.toUtf8().size() <= maxSkillBytes,
            u"Не удалось загрузить skill. Нужен публичный Markdown до 64 КБ; прежний skill сохранён."_s);
    const QString old = skillRecord(agent)["instructions"_L1].toString();
    saveSkill(agent,
              {{u"skill_url"_s, link}, {u"instructions"_s, text}, {u"status"_s, u"Загружен · со следующей задачи"_s}},
              {{u"address"_s, address.toString(QUrl::FullyEncoded)},
               {u"loaded_at"_s, now()},
               {u"hash"_s, digest(text.toUtf8())},
               {u"changes"_s, old.isEmpty() ? QString() : skillChanges(old, text)}});
}

/// The list that the last change would bring back gets the skill as well: that change was another one.
void AgentTeam::saveSkill(const QString &agent, const QJsonObject &record, const QJsonObject &load)
{
    store.put(u"settings"_s, loadId(agent), {}, load);
    QJsonObject next = preferences.document();
    if (builtInRoles().contains(agent)) {
        QJsonObject skills = std::as_const(next)["role_skills"_L1].toObject();
        skills[agent] = record;
        next["role_skills"_L1] = skills;
    } else {
        next["custom_agents"_L1] = withSkill(agents(), agent, record);
    }
    preferences.savePreferences(next);
    const auto before = lastChange.before.find(u"custom_agents"_s);
    if (before != lastChange.before.end())
        *before = withSkill(before->toArray(), agent, record);
}

QStringList AgentTeam::loadingSkills() const
{
    QStringList agents = loads.keys();
    std::ranges::sort(agents);
    return agents;
}

QVariantMap AgentTeam::skill(const QString &agent) const
{
    const QJsonObject record = skillRecord(agent);
    const QString text = record["instructions"_L1].toString();
    if (text.isEmpty())
        return {};
    const QByteArray bytes = text.toUtf8();
    QVariantMap shown{{u"skill_url"_s, record["skill_url"_L1].toString()},
                      {u"status"_s, record["status"_L1].toString()},
                      {u"text"_s, visibleLines(text)},
                      {u"bytes"_s, bytes.size()},
                      {u"given"_s, std::min(text.size(), maxInstructionChars)}};
    // The row is of another text when one of the two could not be stored.
    const QJsonObject load = store.get(u"settings"_s, loadId(agent));
    if (load["hash"_L1].toString() == digest(bytes)) {
        for (const QString &key : {u"address"_s, u"loaded_at"_s, u"changes"_s})
            shown.insert(key, load[key].toString());
    }
    return shown;
}

} // namespace vesk
