// A model that answers every role with a fixed document.

#include "mock_provider.h"

#include "helpers.h"

#include <QHash>
#include <QJsonArray>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

/// The page; "GUARD" is where the check for division by zero goes, once a fix is ordered.
QString calculatorPage()
{
    return uR"(<!doctype html><html lang="ru"><meta charset="utf-8"><meta name="viewport" content="width=device-width">)"
           uR"(<title>Калькулятор VESK</title>)"
           uR"(<style>body{background:#10141d;color:#e9eef7;font:18px system-ui;display:grid;place-items:center;min-height:95vh})"
           uR"(main{background:#1b2230;padding:40px;border-radius:20px})"
           uR"(input,select,button{font:inherit;padding:12px;margin:6px;max-width:140px}output{display:block;padding:20px;color:#82e0cc}</style>)"
           uR"(<main><h1>Калькулятор</h1><input id="a" aria-label="Первое число" type="number" value="6">)"
           uR"(<select id="op" aria-label="Действие"><option>+</option><option>-</option><option>*</option><option>/</option></select>)"
           uR"(<input id="b" aria-label="Второе число" type="number" value="2">)"
           uR"(<button id="run">Вычислить</button><output id="result" aria-live="polite"></output></main>)"
           uR"(<script>document.getElementById('run').onclick=()=>{)"
           uR"(const a=Number(document.getElementById('a').value),)"
           uR"(b=Number(document.getElementById('b').value),)"
           uR"(op=document.getElementById('op').value;)"
           uR"(let value;GUARD if(op==='+')value=a+b;else if(op==='-')value=a-b;)"
           uR"(else if(op==='*')value=a*b;else value=a/b;)"
           uR"(document.getElementById('result').textContent=value;};</script></html>)"_s;
}

QString readme()
{
    return u"# Калькулятор\n\nОткройте calculator.html в браузере. Введите два числа и выберите действие. "
           u"При делении на ноль появится сообщение об ошибке. Работает без интернета и зависимостей.\n"_s;
}

QString zeroGuard()
{
    return u"if(op==='/' && b===0){document.getElementById('result').textContent='На ноль делить нельзя';return;}"_s;
}

/// Lets the message of the guarded page come up on its own instead of beside the result.
void alertInstead(QString &text)
{
    text.replace(u"document.getElementById('result').textContent='На ноль делить нельзя';"_s,
                 u"alert('На ноль делить нельзя');document.getElementById('result').textContent='Ошибка';"_s);
}

using Answer = QJsonObject (*)(const QJsonObject &input);

QString requestText(const QJsonObject &input)
{
    return input["task"_L1]["original_request"_L1].toString();
}

QString clarification(const QJsonObject &input)
{
    return input["task"_L1]["clarification"_L1].toString();
}

bool isBuildRequest(const QJsonObject &input)
{
    const QString text = requestText(input);
    return text.contains("build"_L1, Qt::CaseInsensitive) || text.contains(u"сбор"_s, Qt::CaseInsensitive);
}

QJsonObject summary(const QString &text)
{
    return {{u"summary"_s, text}};
}

QString questionOn(const QString &topic)
{
    if (topic == "code"_L1)
        return u"Проверка нашла деление на ноль. Как показывать ошибку?"_s;
    if (topic == "structure"_L1)
        return u"Проверяющие предложили изменить структуру. Как продолжить?"_s;
    return u"В плане есть замечания. Какой вариант выбираем?"_s;
}

QJsonArray optionsOn(const QString &topic)
{
    if (topic == "code"_L1)
        return {u"Показать сообщение рядом с результатом"_s, u"Выводить отдельное предупреждение"_s};
    return {u"Исправить предложенный вариант"_s, u"Упростить решение"_s};
}

QJsonObject coordination(const QJsonObject &input)
{
    const QString topic = input["artifact"_L1]["topic"_L1].toString();
    return {
        {u"summary"_s, u"Нужно ваше решение."_s},
        {u"question"_s, questionOn(topic)},
        {u"options"_s, optionsOn(topic)},
    };
}

QJsonObject chatReply(const QJsonObject &input)
{
    const QString report = input["task_report"_L1].toString();
    return summary(
        u"Я работаю в деморежиме: полноценный диалог с моделью доступен после подключения модели в настройках API.\n\n"_s
        + (report.isEmpty() ? u"Могу показать цикл работы на примере калькулятора. "
                              u"Выберите режим «Задача» и напишите «Создай калькулятор»."_s
                            : report));
}

QJsonObject taskSpec(const QJsonObject &input)
{
    const bool build = isBuildRequest(input);
    const auto either
        = [build](const QString &ofCalculator, const QString &ofBuild) { return build ? ofBuild : ofCalculator; };
    const QString question
        = either(u"Создать локальный калькулятор для браузера, без аккаунта и внешних зависимостей?"_s,
                 u"Использовать выбранную папку и команду сборки из настроек?"_s);
    return {
        {u"title"_s, either(u"Приложение-калькулятор"_s, u"Сборка проекта"_s)},
        {u"original_request"_s, requestText(input)},
        {u"requirements"_s,
         QJsonArray{either(u"Локальный HTML-калькулятор: сложение, вычитание, умножение и деление"_s,
                           u"Собрать тестовый проект"_s)}},
        {u"constraints"_s, QJsonArray{u"Изменения только в папке проекта"_s}},
        {u"acceptance_criteria"_s,
         QJsonArray{either(u"Калькулятор обрабатывает деление на ноль"_s, u"Команда сборки завершается успешно"_s)}},
        {u"questions"_s, clarification(input).isEmpty() ? QJsonArray{question} : QJsonArray()},
        {u"clarification_options"_s, QJsonArray{u"Да, локально и без аккаунта"_s}},
        {u"risk_level"_s, u"LOW"_s},
    };
}

QJsonObject planNode(const QString &id, const QString &title, const QString &kind, const QStringList &dependencies,
                     const QJsonObject &input)
{
    return {
        {u"id"_s, id},       {u"title"_s, title},
        {u"kind"_s, kind},   {u"dependencies"_s, QJsonArray::fromStringList(dependencies)},
        {u"input"_s, input},
    };
}

QJsonArray buildNodes(const QJsonObject &input)
{
    return {planNode(u"build"_s, u"Собрать выбранный проект"_s, u"tool"_s, {},
                     input["task"_L1]["build_command"_L1].toObject())};
}

QJsonArray calculatorNodes()
{
    return {
        planNode(u"calculator"_s, u"Создать калькулятор"_s, u"code"_s, {}, {{u"path"_s, u"calculator.html"_s}}),
        planNode(u"guide"_s, u"Написать инструкцию"_s, u"code"_s, {}, {{u"path"_s, u"README-calculator.md"_s}}),
    };
}

QJsonObject plan(const QJsonObject &input)
{
    return {{u"nodes"_s, isBuildRequest(input) ? buildNodes(input) : calculatorNodes()}};
}

QJsonObject structure(const QJsonObject &)
{
    return {{u"items"_s,
             QJsonArray{u"Файлы создаются независимо; каждый проходит проверку корректности и совместимости"_s,
                        u"Завершение только после одобрения актуальных версий"_s}}};
}

/// What a coding job is told under a key. In a run it stands in the artifact, beside the task and the memory; whoever
/// asks for a file without a run puts it straight into the input.
QJsonValue codingOrder(const QJsonObject &input, QLatin1StringView key)
{
    return input.contains(key) ? input[key] : input["artifact"_L1][key];
}

QString textOfFile(const QString &path, bool fixing, const QString &clarification)
{
    QString text = path.endsWith(".md"_L1) ? readme() : calculatorPage();
    text.replace("GUARD"_L1, fixing ? zeroGuard() : QString());
    if (fixing && clarification.contains(u"отдельное предупреждение"_s))
        alertInstead(text);
    return text;
}

QJsonObject files(const QJsonObject &input)
{
    const QString path = codingOrder(input, "node"_L1)["input"_L1]["path"_L1].toString(u"calculator.html"_s);
    const bool fixing = !codingOrder(input, "fixes"_L1).isUndefined();
    const QString text = textOfFile(path, fixing, clarification(input));
    return {{u"files"_s, QJsonArray{QJsonObject{{u"path"_s, path}, {u"content"_s, text}}}}};
}

bool dividesByZero(const QJsonObject &input)
{
    const QJsonValue file = input["artifact"_L1]["file"_L1];
    return file["path"_L1].toString().endsWith(".html"_L1) && !file["content"_L1].toString().contains("b===0"_L1);
}

QJsonObject verdict(bool problem)
{
    return {
        {u"verdict"_s, problem ? u"REVISE"_s : u"APPROVE"_s},
        {u"issues"_s, problem ? QJsonArray{u"Не обработано деление на ноль"_s} : QJsonArray()},
        {u"required_changes"_s, problem ? QJsonArray{u"Добавить проверку b===0 перед делением"_s} : QJsonArray()},
        {u"confidence"_s, 0.95},
    };
}

QJsonObject approval(const QJsonObject &)
{
    return verdict(false);
}

QJsonObject correctnessReview(const QJsonObject &input)
{
    return verdict(dividesByZero(input));
}

QJsonObject observation(const QJsonObject &)
{
    return summary(u"Повторяющихся циклов не обнаружено. Количество попыток и исправлений ограничено."_s);
}

QJsonObject stageResult(const QJsonObject &)
{
    return summary(u"Результат этапа подготовлен"_s);
}

Answer answerOf(const QString &role)
{
    static const QHash<QString, Answer> answers{
        {u"coordinator"_s, coordination},
        {u"chat"_s, chatReply},
        {u"orchestrator"_s, taskSpec},
        {u"planner"_s, plan},
        {u"structure"_s, structure},
        {u"coding"_s, files},
        {u"correctness_reviewer"_s, correctnessReview},
        {u"validator"_s, approval},
        {u"observer"_s, observation},
    };
    const bool judges = role.contains("judge"_L1) || role.contains("reviewer"_L1);
    return answers.value(role, judges ? approval : stageResult);
}

int roughTokens(const QString &text)
{
    return static_cast<int>(text.size() / 4);
}

} // namespace

void MockProvider::request(const LLMRequest &request, std::function<void(LLMResult)> callback)
{
    QTimer::singleShot(delayMs, this, [this, request, callback = std::move(callback), noted = generation] {
        if (noted != generation)
            return;
        LLMResult result;
        result.content = json(respond(request));
        result.promptTokens = roughTokens(json(request.input));
        result.completionTokens = roughTokens(result.content);
        callback(result);
    });
}

void MockProvider::cancelAll()
{
    ++generation;
}

QString MockProvider::name() const
{
    return u"Mock / deterministic"_s;
}

QJsonObject MockProvider::respond(const LLMRequest &request)
{
    return answerOf(request.role)(request.input);
}

} // namespace vesk
