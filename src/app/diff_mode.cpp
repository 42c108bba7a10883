// Differences in a terminal.

#include "diff_mode.h"

#include "console.h"
#include "diff.h"
#include "helpers.h"
#include "path_rules.h"
#include "project_lookup.h"
#include "project_record.h"
#include "store.h"
#include "workspace.h"

#include <QDir>
#include <QFileInfo>
#include <QSet>

#include <algorithm>
#include <functional>
#include <map>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

int revisionNumber(const QString &option, const QString &value)
{
    bool ok = false;
    const int number = value.toInt(&ok);
    require(ok && number >= 0, option + u": нужен номер версии, 0 — файла ещё нет"_s);
    return number;
}

void print(const QByteArray &text)
{
    if (!text.isEmpty())
        printLine(QString::fromUtf8(text.chopped(1)));
}

void printRevisions(const Workspace &workspace, const DiffOptions &options)
{
    const int newest = workspace.latest(options.path)["revision"_L1].toInt();
    require(newest > 0, u"В проекте нет такого файла: "_s + options.path);
    const int to = options.to < 0 ? newest : options.to;
    const int from = options.from < 0 ? std::max(0, to - 1) : options.from;
    const auto bytes = [&](int number) {
        const QJsonObject record = workspace.revision(options.path, number);
        require(number == 0 || !record.isEmpty(), u"Нет версии %1 файла "_s.arg(number) + options.path);
        return workspace.bytesOf(record);
    };
    print(unifiedDiff(slashed(options.path), bytes(from), bytes(to)));
}

void printEdits(const Workspace &workspace, const QString &only)
{
    const QList<HandEdit> edits = workspace.handEdits();
    for (const HandEdit &edit : edits) {
        if (!only.isEmpty() && slashed(edit.path) != slashed(only))
            continue;
        if (edit.kind == HandEdit::Kind::Unreadable)
            printErrorLine(visibleText(edit.text()));
        else
            print(differenceOf(workspace, edit));
    }
}

void printTask(const Workspace &workspace, const QString &task)
{
    const QJsonObject before = workspace.checkpointOf(task);
    require(!before.isEmpty(), u"Задача ещё ничего не меняла."_s);
    const QList<FileChange> changes = workspace.changesSince(before);
    for (const FileChange &change : changes)
        print(unifiedDiff(slashed(change.path), workspace.bytesOf(change.before), workspace.bytesOf(change.after)));
}

} // namespace

QByteArray differenceOf(const Workspace &workspace, const HandEdit &edit)
{
    const bool isThere = edit.kind == HandEdit::Kind::Changed || edit.kind == HandEdit::Kind::Added;
    if (edit.kind == HandEdit::Kind::Unreadable)
        return edit.text().toUtf8();
    return unifiedDiff(slashed(edit.path), workspace.bytesOf(workspace.latest(edit.path)),
                       isThere ? std::optional(workspace.read(edit.path)) : std::nullopt);
}

DiffOptions parseDiffOptions(const QStringList &arguments)
{
    DiffOptions options;
    using Take = std::function<void(const QString &)>;
    const std::map<QString, Take> withValue{
        {u"--project"_s, [&](const QString &value) { options.projectFolder = QDir().absoluteFilePath(value); }},
        {u"--data-dir"_s, [](const QString &) {}},
        {u"--task"_s, [&](const QString &value) { options.task = value; }},
        {u"--from"_s, [&](const QString &value) { options.from = revisionNumber(u"--from"_s, value); }},
        {u"--to"_s, [&](const QString &value) { options.to = revisionNumber(u"--to"_s, value); }},
    };
    QSet<QString> given;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString &argument = arguments[i];
        require(!given.contains(argument), argument + u": указан дважды"_s);
        given.insert(argument);
        const auto known = withValue.find(argument);
        if (known != withValue.end()) {
            const QString value = arguments.value(++i);
            require(!value.isEmpty() && !value.startsWith("--"_L1), argument + u": не указано значение"_s);
            known->second(value);
        } else if (argument == "--edits"_L1) {
            options.edits = true;
        } else if (argument != "--diff"_L1) {
            require(!argument.startsWith("--"_L1) && options.path.isEmpty(), u"Неизвестный параметр: "_s + argument);
            options.path = argument;
        }
    }
    require(options.path.isEmpty() || options.task.isEmpty(), u"--task: показывает все файлы задачи, файл не нужен"_s);
    require(!options.path.isEmpty() || (options.from < 0 && options.to < 0), u"--from, --to: нужен файл"_s);
    if (options.projectFolder.isEmpty())
        options.projectFolder = QDir::currentPath();
    return options;
}

int printDifferences(const DiffOptions &options, const QString &dataFolder)
{
    Store store(databaseIn(dataFolder));
    const QString root = QFileInfo(options.projectFolder).canonicalFilePath();
    const QString project = root.isEmpty() ? QString() : projectAt(store, root);
    require(!project.isEmpty(), u"В этой папке нет проекта: "_s + options.projectFolder);
    Workspace workspace(store);
    workspace.open(root, project);
    if (options.edits)
        printEdits(workspace, options.path);
    else if (!options.path.isEmpty())
        printRevisions(workspace, options);
    else
        printTask(workspace, options.task);
    return printingFailed() ? 1 : 0;
}

} // namespace vesk
