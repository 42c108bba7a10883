#include "run_options.h"

#include "helpers.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <functional>
#include <map>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

qint64 positiveNumber(const QString &option, const QString &value, qint64 most)
{
    bool ok = false;
    const qint64 number = value.toLongLong(&ok);
    require(ok && number >= 0 && number <= most, option + u": нужно целое число от 0 до "_s + QString::number(most));
    return number;
}

QJsonObject buildCommand(const QString &text)
{
    QJsonParseError fault;
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8(), &fault);
    const QJsonObject command = document.object();
    const QJsonArray arguments = command["arguments"_L1].toArray();
    require(document.isObject() && !command["program"_L1].toString().isEmpty() && command["arguments"_L1].isArray()
                && std::ranges::all_of(arguments, [](const QJsonValue &argument) { return argument.isString(); }),
            u"--build-command: нужен объект {\"program\": \"/полный/путь\", \"arguments\": [\"...\"]}"_s);
    return command;
}

} // namespace

RunOptions parseRunOptions(const QStringList &arguments)
{
    RunOptions options;
    options.projectFolder = QDir::currentPath();

    using Take = std::function<void(const QString &)>;
    const std::map<QString, Take> withValue{
        {u"--run"_s, [&](const QString &value) { options.request = value; }},
        {u"--project"_s, [&](const QString &value) { options.projectFolder = QDir().absoluteFilePath(value); }},
        {u"--data-dir"_s, [](const QString &) {}},
        {u"--budget"_s,
         [&](const QString &value) { options.budget = positiveNumber(u"--budget"_s, value, 1000000000000); }},
        {u"--build-command"_s, [&](const QString &value) { options.buildCommand = buildCommand(value); }},
        {u"--answer"_s, [&](const QString &value) { options.answers.append(value); }},
        {u"--mock-delay"_s,
         [&](const QString &value) { options.mockDelayMs = int(positiveNumber(u"--mock-delay"_s, value, 60000)); }},
    };
    const std::map<QString, bool *> switches{
        {u"--simulate"_s, &options.simulate},
        {u"--allow-commands"_s, &options.allowCommands},
        {u"--json"_s, &options.json},
    };

    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString &argument = arguments[i];
        if (const auto known = switches.find(argument); known != switches.end()) {
            *known->second = true;
            continue;
        }
        const auto known = withValue.find(argument);
        require(known != withValue.end(), u"Неизвестный параметр: "_s + argument);
        const bool present = i + 1 < arguments.size() && !withValue.contains(arguments[i + 1])
            && !switches.contains(arguments[i + 1]) && !arguments[i + 1].isEmpty();
        require(present, argument + u": не указано значение"_s);
        known->second(arguments[++i]);
    }
    require(!options.request.trimmed().isEmpty(), u"--run: введите текст запроса"_s);
    return options;
}

} // namespace vesk
