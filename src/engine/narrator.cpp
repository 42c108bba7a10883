// Phases, statuses, plans and results in words for the user.

#include "narrator.h"

#include "evidence.h"
#include "helpers.h"
#include "phases.h"
#include "reasons.h"
#include "roles.h"
#include "statuses.h"

#include <QHash>
#include <QJsonArray>
#include <QStringList>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

using Labels = QHash<QString, QString>;

constexpr qsizetype maxCommandChars = 120;
constexpr qsizetype maxResultChars = 300;

const Labels &phaseLabels()
{
    static const Labels labels{
        {Phase::idle, u"Готов к работе"_s},
        {Phase::intake, u"Разбираюсь в задаче"_s},
        {Phase::clarification, u"Жду вашего ответа"_s},
        {Phase::planning, u"Составляю план"_s},
        {Phase::planReview, u"Проверяю план"_s},
        {Phase::structuring, u"Готовлю структуру"_s},
        {Phase::structureReview, u"Проверяю структуру"_s},
        {Phase::preview, u"Жду подтверждения плана"_s},
        {Phase::execution, u"Выполняю задачу"_s},
        {Phase::validation, u"Проверяю результат"_s},
        {Phase::completed, u"Задача завершена"_s},
        {Phase::failed, u"Не удалось завершить"_s},
        {Phase::cancelled, u"Работа остановлена"_s},
        {Phase::interrupted, u"Сеанс был прерван"_s},
    };
    return labels;
}

const Labels &statusLabels()
{
    static const Labels labels{
        {u"PENDING"_s, u"Ожидает"_s},
        {u"WAITING"_s, u"В очереди"_s},
        {u"IDLE"_s, u"Готов к работе"_s},
        {u"THINKING"_s, u"Думаю"_s},
        {u"PLANNING"_s, u"Планирую"_s},
        {u"WORKING"_s, u"Работаю"_s},
        {u"REVIEWING"_s, u"Проверяю"_s},
        {u"USING_TOOL"_s, u"Использую инструмент"_s},
        {u"FIXING"_s, u"Исправляю"_s},
        {u"APPROVED"_s, u"Одобрено"_s},
        {u"BLOCKED"_s, u"Нужен доступ"_s},
        {u"ERROR"_s, u"Ошибка"_s},
        {u"COMPLETED"_s, u"Готово"_s},
        {u"FAILED"_s, u"Ошибка"_s},
        {u"CANCELLED"_s, u"Остановлен"_s},
        {u"INTERRUPTED"_s, u"Прерван"_s},
        {u"QUEUED"_s, u"В очереди"_s},
        {u"RUNNING"_s, u"В работе"_s},
        {u"REVISION_REQUIRED"_s, u"Нужно исправление"_s},
        {u"APPROVE"_s, u"Одобрено"_s},
        {u"REVISE"_s, u"Нужны изменения"_s},
        {u"REJECT"_s, u"Отклонено"_s},
    };
    return labels;
}

const Labels &roleLabels()
{
    static const Labels labels{
        {u"coordinator"_s, u"Главный агент"_s},
        {u"orchestrator"_s, u"Главный агент"_s},
        {u"research"_s, u"Исследователь"_s},
        {u"planner"_s, u"Планировщик"_s},
        {u"requirements_judge"_s, u"Проверка требований"_s},
        {u"architecture_judge"_s, u"Проверка архитектуры"_s},
        {u"risk_judge"_s, u"Проверка рисков"_s},
        {u"structure"_s, u"Структура проекта"_s},
        {u"dependency_judge"_s, u"Проверка зависимостей"_s},
        {u"maintainability_judge"_s, u"Проверка удобства поддержки"_s},
        {u"coding"_s, u"Разработчик"_s},
        {u"correctness_reviewer"_s, u"Проверка кода"_s},
        {u"integration_reviewer"_s, u"Проверка совместимости"_s},
        {u"observer"_s, u"Наблюдатель"_s},
        {u"validator"_s, u"Итоговая проверка"_s},
        {u"terminal"_s, u"Терминал"_s},
        {u"workflow_reviewer"_s, u"Проверка проекта"_s},
        {u"specialist"_s, u"Специалист"_s},
    };
    return labels;
}

QStringList planLines(const QJsonArray &nodes)
{
    QStringList lines;
    for (const QJsonValue &node : nodes)
        lines.append(QString::number(lines.size() + 1) + u". "_s + oneLine(node["title"_L1].toString()));
    return lines;
}

QStringList structureLines(const QJsonArray &items, const QJsonArray &nodes)
{
    QStringList lines;
    for (const QJsonValue &item : items) {
        if (item.isString())
            lines.append(u"• "_s + oneLine(item.toString()));
    }
    for (const QJsonValue &node : nodes) {
        const QString path = node["input"_L1]["path"_L1].toString();
        if (!path.isEmpty())
            lines.append(u"  "_s + visibleText(path));
    }
    return lines;
}

bool isCompleted(const QJsonObject &record)
{
    return record["status"_L1].toString() == NodeStatus::completed;
}

/// What the graph says about the work, as lines of the report.
struct Account {
    QStringList done;
    QStringList pending;
    QStringList files;
    QStringList tools; ///< One for each tool that has run.
    qint64 fixCycles = 0;

    explicit Account(const QJsonArray &graph);

private:
    void addStage(const QJsonObject &node);
    void addFile(const QJsonObject &node);
    void addTool(const QJsonObject &node);
    void addCycles(const QJsonObject &input);
};

Account::Account(const QJsonArray &graph)
{
    for (const QJsonValue &value : graph) {
        const QJsonObject node = value.toObject();
        const QString kind = node["kind"_L1].toString();
        addStage(node);
        if (kind == "code"_L1)
            addFile(node);
        else if (kind == "tool"_L1)
            addTool(node);
        addCycles(node["input"_L1].toObject());
    }
}

void Account::addStage(const QJsonObject &node)
{
    const QString line = u"• "_s + oneLine(node["title"_L1].toString());
    if (isCompleted(node))
        // A check that could not be made holds nothing up, and is not to be taken for one that was passed.
        done.append(node["output"_L1]["limitation"_L1].isString() ? line + u" — не проверено"_s : line);
    else
        pending.append(line + u" — "_s + Narrator::status(node["status"_L1].toString()));
}

void Account::addFile(const QJsonObject &node)
{
    const QJsonObject output = node["output"_L1].toObject();
    const QString path = output["path"_L1].toString();
    if (path.isEmpty())
        return;
    files.append(u"• "_s + visibleText(path) + u" — версия "_s + QString::number(output["revision"_L1].toInt())
                 + (isCompleted(node) ? u"; проверка принята"_s : u"; проверка не завершена"_s));
}

void Account::addTool(const QJsonObject &node)
{
    const QJsonObject output = node["output"_L1].toObject();
    if (output.isEmpty())
        return;
    // One that was refused, or could not be started, has a reason in place of a code.
    const QString refused
        = output["exit_code"_L1].isUndefined() ? reasonText(output["error"_L1].toString()) : QString();
    tools.append(u"• "_s + oneLine(node["title"_L1].toString()) + u" — код завершения "_s
                 + QString::number(output["exit_code"_L1].toInt(-1))
                 + (output["success"_L1].toBool() ? u"; успешно"_s : u"; ошибка"_s)
                 + (refused.isEmpty() ? QString() : u": "_s + oneLine(refused)));
}

void Account::addCycles(const QJsonObject &input)
{
    for (const auto key : {"fix_attempts"_L1, "recovery_attempts"_L1, "output_repairs"_L1})
        fixCycles += std::max(input[key].toInt(), 0);
}

bool isFinishedReview(const QJsonObject &run)
{
    const QString logicalRole = run["logical_role"_L1].toString();
    return isCompleted(run) && givesVerdict(logicalRole.isEmpty() ? run["role"_L1].toString() : logicalRole);
}

qsizetype finishedReviews(const QJsonArray &runs)
{
    return std::ranges::count_if(runs, [](const QJsonValue &run) { return isFinishedReview(run.toObject()); });
}

QString joined(const QStringList &lines)
{
    return lines.join(u'\n');
}

/// A heading with its lines; nothing when there are none.
QString section(const QString &heading, const QStringList &lines)
{
    return lines.isEmpty() ? QString() : u"\n\n"_s + heading + u"\n"_s + joined(lines);
}

QString doneText(const QStringList &done)
{
    return done.isEmpty() ? u"• Завершённых этапов пока нет."_s : joined(done);
}

QString pendingText(const QStringList &pending, const QString &phase)
{
    if (!pending.isEmpty())
        return joined(pending);
    if (phase == Phase::completed)
        return u"• Незавершённых этапов в утверждённом плане нет."_s;
    if (isEndPhase(phase))
        return u"• Работа остановилась до выполнения плана."_s;
    return u"• План ещё готовится. Работа продолжается."_s;
}

/// What the user's own agents have handed over, each its last result.
QStringList deliveries(const QJsonArray &runs)
{
    QStringList ids;
    QHash<QString, QString> lines;
    for (const QJsonValue &run : runs) {
        const QString agent = run["role"_L1].toString();
        if (!agent.startsWith("custom_"_L1) || !isCompleted(run.toObject()))
            continue;
        if (!lines.contains(agent))
            ids.append(agent);
        const QString result = oneLine(run["output"_L1]["summary"_L1].toString()).left(maxResultChars);
        lines[agent] = u"• "_s + oneLine(run["name"_L1].toString()) + (result.isEmpty() ? result : u" — "_s + result);
    }
    QStringList all;
    for (const QString &agent : std::as_const(ids))
        all.append(lines.value(agent));
    return all;
}

QString disabledText(const QStringList &roles)
{
    if (roles.isEmpty())
        return {};
    QStringList labels;
    for (const QString &role : roles)
        labels.append(Narrator::role(role));
    return u"\n• Отключены пользователем: "_s + labels.join(u", "_s) + u". Их отдельные проверки не выполнялись."_s;
}

/// The criteria that a real check stands for.
QString provedText(const QJsonObject &ledger)
{
    QHash<QString, QString> commands;
    const QJsonArray checks = ledger["checks"_L1].toArray();
    for (const QJsonValue &check : checks) {
        const bool isPage = check["kind"_L1].toString() == "page"_L1;
        commands.insert(check["node"_L1].toString(),
                        isPage ? u"страница открыта в браузере"_s : check["command"_L1].toString());
    }
    QString text;
    const QJsonArray criteria = ledger["criteria"_L1].toArray();
    for (const QJsonValue &criterion : criteria) {
        if (criterion["mark"_L1].toString() == "check"_L1)
            text += u"\n• «"_s + oneLine(criterion["text"_L1].toString()) + u"» — подтверждено: "_s
                + oneLine(commands.value(criterion["checks"_L1][0].toString()).left(maxCommandChars));
    }
    return text;
}

QString checkedText(const QJsonObject &state, qint64 fixCycles)
{
    QString text = u"\n\nЧто проверено\n• Завершённых проверок агентов: "_s
        + QString::number(finishedReviews(state["runs"_L1].toArray())) + u". Циклов исправления: "_s
        + QString::number(fixCycles) + u"."_s;
    text += disabledText(strings(state["spec"_L1]["disabled_agents"_L1].toArray()));
    if (state["phase"_L1].toString() == Phase::completed)
        text += u"\n• Граф завершён, открытых замечаний нет. "
                u"Актуальность созданных файлов проверена по контрольным суммам."_s;
    return text + provedText(state["evidence"_L1].toObject());
}

QString uncheckedText(const QJsonObject &state, bool toolHasRun)
{
    QString text = u"\n\nЧто ещё нужно проверить\n"_s;
    const QString limitation = state["spec"_L1]["verification_limitation"_L1].toString();
    if (!limitation.isEmpty())
        text += u"• "_s + limitation + u"\n"_s;
    const QStringList gaps = strings(state["evidence"_L1]["gaps"_L1].toArray());
    for (const QString &gap : gaps)
        text += u"• "_s + gap + u"\n"_s;
    if (toolHasRun)
        return text
            + u"• Выполненные команды перечислены выше. Их успешное завершение не подтверждает все "
              u"пользовательские сценарии — проверьте результат в целевом приложении."_s;
    return text
        + u"• Запуск созданного приложения и автоматические тесты не выполнялись. "
          u"Проверка агентов не заменяет реальный запуск — откройте файлы и проверьте поведение."_s;
}

QString closingText(const QJsonObject &state, bool hasFiles)
{
    QString text;
    const QString error = state["error"_L1].toString();
    if (!error.isEmpty())
        text += u"\n\nПочему работа остановилась\n"_s + reasonText(error);
    if (state["provider"_L1].toString().contains("Mock"_L1))
        text += u"\n\nЭто деморежим: решения агентов и расход токенов смоделированы. "
                u"Запись файлов и одобренные команды выполняются реально."_s;
    if (hasFiles)
        text += u"\n\nСледующий шаг: откройте раздел «Файлы» или спросите меня о результате в этом чате."_s;
    return text;
}

} // namespace

QString Narrator::phase(const QString &code)
{
    return phaseLabels().value(code, code);
}

QString Narrator::status(const QString &code)
{
    return statusLabels().value(code, code);
}

QString Narrator::role(const QString &code)
{
    return roleLabels().value(code, code);
}

QString Narrator::progress(const QJsonObject &state)
{
    const QString phase = state["phase"_L1].toString();
    const QJsonArray nodes = state["plan"_L1]["nodes"_L1].toArray();
    if (phase == Phase::intake)
        return u"Разбираюсь в задаче."_s;
    if (phase == Phase::clarification)
        return state["decision"_L1]["question"_L1].toString();
    if (phase == Phase::planReview)
        return u"План\n\n"_s + joined(planLines(nodes)) + u"\n\nПередаю трём проверяющим."_s;
    if (phase == Phase::structureReview)
        return u"Структура\n\n"_s + joined(structureLines(state["structure"_L1]["items"_L1].toArray(), nodes))
            + u"\n\nПроверяю связи между файлами."_s;
    if (phase == Phase::preview)
        return u"План и структура готовы."_s;
    if (phase == Phase::execution)
        return u"Создаю файлы и проверяю результат."_s;
    if (phase == Phase::validation)
        return u"Финальная проверка."_s;
    return {};
}

QString Narrator::report(const QJsonObject &state)
{
    const QString phase = state["phase"_L1].toString();
    const QJsonObject spec = state["spec"_L1].toObject();
    if (phase == Phase::completed && spec["answer_only"_L1].toBool())
        return spec["summary"_L1].toString();

    const Account account(state["graph"_L1].toArray());
    const QString headline = evidenceHeadline(state["evidence"_L1].toObject());
    return Narrator::phase(phase) + u'.' + (headline.isEmpty() ? QString() : u' ' + headline) + u"\n\nЧто сделано\n"_s
        + doneText(account.done) + u"\n\nЧто не выполнено\n"_s + pendingText(account.pending, phase)
        + section(u"Файлы"_s, account.files)
        + section(u"Результаты ваших агентов"_s, deliveries(state["runs"_L1].toArray()))
        + checkedText(state, account.fixCycles) + section(u"Результаты инструментов"_s, account.tools)
        + uncheckedText(state, !account.tools.isEmpty()) + closingText(state, !account.files.isEmpty());
}

} // namespace vesk
