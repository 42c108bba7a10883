// How the list of the user's own agents changes.

#include "agent_network.h"

#include "helpers.h"
#include "roles.h"
#include "workflow.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype maxNameChars = 60;
constexpr qsizetype maxRuleChars = 8000;
constexpr int mediaPriority = 80;

struct TemplateAgent {
    QString name;
    QString kind;
    int priority = 0;
    QList<qsizetype> after; ///< Places in the template.
    QString rules;
};

const QList<TemplateAgent> &templateAgents()
{
    static const QList<TemplateAgent> agents{
        {u"Дизайн"_s,
         u"specialist"_s,
         100,
         {},
         u"Подготовь дизайн интерфейса: структура экранов, состояния, визуальный стиль и доступность. Передай "
         "конкретные решения команде."_s},
        {u"Фронтенд"_s,
         u"specialist"_s,
         80,
         {0},
         u"На основе дизайна подготовь компоненты, взаимодействия, адаптивность и контракт API. Опиши требования к "
         "реализации."_s},
        {u"Бэкенд"_s,
         u"specialist"_s,
         70,
         {0},
         u"На основе дизайна подготовь данные, API и обработку ошибок. Если сервер не нужен, явно предложи локальное "
         "решение."_s},
        {u"Объединение"_s,
         u"specialist"_s,
         60,
         {1, 2},
         u"Сопоставь результаты фронтенда и бэкенда, согласуй интерфейсы и собери единую инструкцию для "
         "разработчика."_s},
        {u"Проверка проекта"_s,
         u"review"_s,
         50,
         {3},
         u"Проверь согласованность проекта и требования пользователя до написания кода. Не требуй готовые файлы на "
         "этапе проектирования."_s},
    };
    return agents;
}

QString idOf(const QJsonValue &agent)
{
    return agent["id"_L1].toString();
}

bool isStage(const QString &role)
{
    return builtInRoles().contains(role);
}

qsizetype placeOf(const QJsonArray &agents, const QString &id)
{
    const auto found = std::ranges::find_if(agents, [&](const QJsonValue &agent) { return idOf(agent) == id; });
    return found == agents.end() ? -1 : found - agents.begin();
}

QJsonArray checked(const QJsonArray &agents)
{
    validateAgentWorkflow(agents);
    return agents;
}

QString chainStage(const QJsonObject &from, const QJsonObject &to)
{
    for (const QJsonObject &agent : {to, from}) {
        const QString parent = agent["parent"_L1].toString();
        if (!parent.isEmpty())
            return parent;
    }
    return u"coding"_s;
}

void bringIntoChain(QJsonObject &agent)
{
    agent["mode"_L1] = u"workflow"_s;
    if (std::as_const(agent)["kind"_L1].toString() == "delegate"_L1)
        agent["kind"_L1] = u"specialist"_s;
}

QString analysisOf(const QStringList &tasks)
{
    const bool photo = tasks.contains(u"photo"_s);
    const bool video = tasks.contains(u"video"_s);
    if (photo && video)
        return u"both"_s;
    return photo ? u"photo"_s : video ? u"video"_s : QString();
}

} // namespace

const QStringList &agentTaskTypes()
{
    static const QStringList types{u"photo"_s,    u"video"_s,        u"ocr"_s,         u"ui"_s,       u"frontend"_s,
                                   u"backend"_s,  u"architecture"_s, u"planning"_s,    u"code"_s,     u"review"_s,
                                   u"testing"_s,  u"bugs"_s,         u"performance"_s, u"security"_s, u"docs"_s,
                                   u"research"_s, u"data"_s,         u"3d"_s,          u"2d"_s,       u"integration"_s};
    return types;
}

QString newAgentId()
{
    return u"custom_"_s + id();
}

QJsonObject agentIn(const QJsonArray &agents, const QString &id)
{
    const qsizetype place = placeOf(agents, id);
    return place < 0 ? QJsonObject() : agents[place].toObject();
}

QSet<QString> component(const QJsonArray &agents, const QString &id)
{
    QSet<QString> linked{id};
    qsizetype before = 0;
    while (before != linked.size()) {
        before = linked.size();
        for (const QJsonValue &agent : agents) {
            for (const QString &other : strings(agent["after"_L1].toArray())) {
                if (linked.contains(idOf(agent)) || linked.contains(other))
                    linked << idOf(agent) << other;
            }
        }
    }
    return linked;
}

QString shortened(const QString &text, qsizetype limit)
{
    QString cut = text.left(limit);
    if (cut.size() < text.size() && !cut.isEmpty() && cut.back().isHighSurrogate())
        cut.chop(1);
    return cut;
}

QJsonArray withAgent(QJsonArray agents, const QString &id, const QString &typedName, const QString &parent,
                     int priority, const QString &rules)
{
    const QString name = shortened(typedName.trimmed(), maxNameChars);
    require(!name.isEmpty(), u"Введите имя агента"_s);
    require(agents.size() < maxAgents, u"Можно добавить до 24 ролей, одновременно работают до 8"_s);
    require(parent.isEmpty() || isStage(parent), u"Неизвестная родительская роль"_s);
    agents.append(QJsonObject{{u"id"_s, id},
                              {u"name"_s, name},
                              {u"parent"_s, parent},
                              {u"mode"_s, u"workflow"_s},
                              {u"kind"_s, u"specialist"_s},
                              {u"priority"_s, std::clamp(priority, 0, 100)},
                              {u"rules"_s, shortened(rules, maxRuleChars)},
                              {u"enabled"_s, true}});
    return agents;
}

QJsonArray withMediaAgent(QJsonArray agents, const QString &id, const QString &type)
{
    require(type == "photo"_L1 || type == "video"_L1, u"Неизвестный тип анализа"_s);
    require(agents.size() < maxAgents, u"Можно добавить до 24 ролей"_s);
    agents.append(QJsonObject{
        {u"id"_s, id},
        {u"name"_s, type == "photo"_L1 ? u"Анализ фото"_s : u"Анализ кадров видео"_s},
        {u"parent"_s, u"orchestrator"_s},
        {u"mode"_s, u"workflow"_s},
        {u"kind"_s, u"specialist"_s},
        {u"media_analysis"_s, type},
        {u"tasks"_s, QJsonArray{type}},
        {u"priority"_s, mediaPriority},
        {u"enabled"_s, true},
        {u"rules"_s,
         u"Проанализируй переданные изображения по запросу пользователя. Опиши наблюдаемые детали, текст, композицию и "
         "требования для команды. Если пиксели не переданы или модель не поддерживает изображения, явно сообщи об "
         "этом. Для видео анализируй только предоставленные кадры с указанными временами; не утверждай, что слышал "
         "звук или видел весь ролик. Передай главному агенту подробное описание и требования для плана. Не выдумывай "
         "содержимое файлов."_s}});
    return agents;
}

QJsonArray withSettings(QJsonArray agents, const QString &id, const QString &rules, int priority, const QString &kind)
{
    require(rules.size() <= maxRuleChars, u"Правила: до 8000 символов"_s);
    require(kind == "specialist"_L1 || kind == "review"_L1 || kind == "delegate"_L1, u"Неизвестный режим агента"_s);
    const qsizetype place = placeOf(agents, id);
    require(place >= 0, u"Агент не найден"_s);
    QJsonObject agent = agents[place].toObject();
    agent["rules"_L1] = rules;
    agent["priority"_L1] = std::clamp(priority, 0, 100);
    agent["kind"_L1] = kind;
    agent["mode"_L1] = kind == "delegate"_L1 ? u"delegate"_s : u"workflow"_s;
    agents[place] = agent;
    return checked(agents);
}

QJsonArray withEnabled(QJsonArray agents, const QString &id, bool enabled)
{
    const qsizetype place = placeOf(agents, id);
    if (place < 0)
        return agents;
    QJsonObject agent = agents[place].toObject();
    agent["enabled"_L1] = enabled;
    agents[place] = agent;
    return agents;
}

QJsonArray withTasks(QJsonArray agents, const QString &id, QStringList tasks)
{
    tasks.removeDuplicates();
    require(std::ranges::all_of(tasks, [](const QString &task) { return agentTaskTypes().contains(task); }),
            u"Неизвестная задача агента"_s);
    const qsizetype place = placeOf(agents, id);
    require(place >= 0, u"Выберите своего агента"_s);
    QJsonObject agent = agents[place].toObject();
    agent["tasks"_L1] = QJsonArray::fromStringList(tasks);
    const QString analysis = analysisOf(tasks);
    if (analysis.isEmpty())
        agent.remove("media_analysis"_L1);
    else
        agent["media_analysis"_L1] = analysis;
    agents[place] = agent;
    return agents;
}

QJsonArray withLink(QJsonArray agents, const QString &from, const QString &to)
{
    const qsizetype place = placeOf(agents, to);
    require(from != to && place >= 0 && placeOf(agents, from) >= 0, u"Выберите двух разных агентов"_s);
    QJsonObject target = agents[place].toObject();
    const QString stage = chainStage(agentIn(agents, from), target);
    QJsonArray after = std::as_const(target)["after"_L1].toArray();
    if (!after.contains(QJsonValue(from)))
        after.append(from);
    target["after"_L1] = after;
    agents[place] = target;

    const QSet<QString> chain = component(agents, from);
    for (qsizetype i = 0; i < agents.size(); ++i) {
        QJsonObject agent = agents[i].toObject();
        if (!chain.contains(idOf(agent)))
            continue;
        agent["parent"_L1] = stage;
        bringIntoChain(agent);
        agents[i] = agent;
    }
    return checked(agents);
}

QJsonArray withoutLink(QJsonArray agents, const QString &from, const QString &to)
{
    const qsizetype place = placeOf(agents, to);
    QJsonObject agent = agentIn(agents, to);
    if (place < 0 || !agent.contains("after"_L1))
        return agents;
    QStringList after = strings(std::as_const(agent)["after"_L1].toArray());
    after.removeAll(from);
    agent["after"_L1] = QJsonArray::fromStringList(after);
    agents[place] = agent;
    return agents;
}

QJsonArray withStage(QJsonArray agents, const QString &id, const QString &parent)
{
    require(parent.isEmpty() || isStage(parent), u"Выберите этап"_s);
    require(placeOf(agents, id) >= 0, u"Агент не найден"_s);
    const QSet<QString> chain = component(agents, id);
    for (qsizetype i = 0; i < agents.size(); ++i) {
        QJsonObject agent = agents[i].toObject();
        if (!chain.contains(idOf(agent)))
            continue;
        agent["parent"_L1] = parent;
        agents[i] = agent;
    }
    return checked(agents);
}

QJsonArray withoutAgent(const QJsonArray &agents, const QString &id)
{
    QJsonArray left;
    for (const QJsonValue &agent : agents) {
        if (idOf(agent) != id)
            left.append(agent);
    }
    QJsonArray unlinked = left;
    for (const QJsonValue &agent : std::as_const(left))
        unlinked = withoutLink(unlinked, id, idOf(agent));
    return unlinked;
}

QJsonArray withTemplate(QJsonArray agents)
{
    require(agents.size() + templateAgents().size() <= maxAgents, u"Для шаблона нужно 5 свободных мест"_s);
    QStringList ids;
    for (const TemplateAgent &each : templateAgents()) {
        ids.append(newAgentId());
        QJsonObject agent{{u"id"_s, ids.last()},      {u"name"_s, each.name}, {u"parent"_s, u"coding"_s},
                          {u"mode"_s, u"workflow"_s}, {u"kind"_s, each.kind}, {u"priority"_s, each.priority},
                          {u"rules"_s, each.rules},   {u"enabled"_s, true}};
        QJsonArray after;
        for (const qsizetype earlier : each.after)
            after.append(ids[earlier]);
        if (!after.isEmpty())
            agent["after"_L1] = after;
        agents.append(agent);
    }
    return checked(agents);
}

QJsonArray withSkill(QJsonArray agents, const QString &id, const QJsonObject &record)
{
    const qsizetype place = placeOf(agents, id);
    if (place < 0)
        return agents;
    QJsonObject agent = agents[place].toObject();
    for (const QString &key : {u"skill_url"_s, u"instructions"_s, u"status"_s})
        agent[key] = record[key]; // what isn't there takes the key away
    agents[place] = agent;
    return agents;
}

} // namespace vesk
