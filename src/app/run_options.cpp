// What --run was asked to do.

#include "run_options.h"

#include "helpers.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSet>

#include <algorithm>
#include <functional>
#include <map>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

qint64 wholeNumber(const QString &option, const QString &value, qint64 most)
{
    bool ok = false;
    const qint64 number = value.toLongLong(&ok);
    require(ok && number >= 0 && number <= most, option + u": нужно целое число от 0 до "_s + QString::number(most));
    return number;
}

/// A name that isn't UTF-8 would become another one on its way to the disk.
QString folder(const QString &option, const QString &path)
{
    require(!path.contains(QChar::ReplacementCharacter), option + u": имя папки должно быть в кодировке UTF-8"_s);
    return QDir().absoluteFilePath(path);
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
    using Take = std::function<void(const QString &)>;
    const std::map<QString, Take> withValue{
        {u"--run"_s, [&](const QString &value) { options.request = value; }},
        {u"--project"_s, [&](const QString &value) { options.projectFolder = folder(u"--project"_s, value); }},
        {u"--data-dir"_s, [](const QString &value) { (void)folder(u"--data-dir"_s, value); }},
        {u"--budget"_s,
         [&](const QString &value) { options.budget = wholeNumber(u"--budget"_s, value, 1000000000000); }},
        {u"--build-command"_s, [&](const QString &value) { options.buildCommand = buildCommand(value); }},
        {u"--endpoint"_s, [&](const QString &value) { options.endpoint = value; }},
        {u"--model"_s, [&](const QString &value) { options.model = value; }},
        {u"--key-env"_s, [&](const QString &value) { options.keyVariable = value; }},
        {u"--answer"_s, [&](const QString &value) { options.answers.append(value); }},
        {u"--mock-delay"_s,
         [&](const QString &value) { options.mockDelayMs = int(wholeNumber(u"--mock-delay"_s, value, 60000)); }},
    };
    const std::map<QString, bool *> switches{
        {u"--mock"_s, &options.mock},
        {u"--simulate"_s, &options.simulate},
        {u"--take-in"_s, &options.takeIn},
        {u"--accept-edits"_s, &options.acceptEdits},
        {u"--allow-commands"_s, &options.allowCommands},
        {u"--workflow-demo"_s, &options.workflowDemo},
        {u"--json"_s, &options.json},
        {u"--strict"_s, &options.strict},
    };

    QSet<QString> given;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString &argument = arguments[i];
        require(argument == "--answer"_L1 || !given.contains(argument), argument + u": указан дважды"_s);
        given.insert(argument);
        if (const auto known = switches.find(argument); known != switches.end()) {
            *known->second = true;
            continue;
        }
        const auto known = withValue.find(argument);
        require(known != withValue.end(), u"Неизвестный параметр: "_s + argument);
        // What the data folder is when its option names none is decided where it is made.
        const QString value = arguments.value(++i);
        const bool present = !withValue.contains(value) && !switches.contains(value) && !value.trimmed().isEmpty();
        require(present || (value.isEmpty() && argument == "--data-dir"_L1), argument + u": не указано значение"_s);
        known->second(value);
    }
    require(!options.request.isEmpty(), u"--run: введите текст запроса"_s);
    require(options.endpoint.isEmpty() == options.model.isEmpty(), u"--endpoint и --model указываются вместе"_s);
    require(!options.mock || options.endpoint.isEmpty(), u"--mock и --endpoint не указываются вместе"_s);
    require(options.keyVariable.isEmpty() || !options.endpoint.isEmpty(), u"--key-env: нужен и --endpoint"_s);
    if (options.projectFolder.isEmpty())
        options.projectFolder = folder(u"--project"_s, QDir::currentPath());
    return options;
}

} // namespace vesk
