// A task's files go into the user's repository.

#include "committing.h"

#include "helpers.h"
#include "path_rules.h"
#include "workspace.h"

#include <QDir>
#include <QEventLoop>
#include <QFileInfo>
#include <QJsonArray>
#include <QProcessEnvironment>
#include <QStandardPaths>
#include <QTimer>

#include <utility>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr int timeoutMs = 120000; ///< Hooks may build and test.
constexpr int stopLimitMs = 3000;
constexpr qsizetype maxMessageBytes = 100000; ///< It goes as an argument, of which Linux takes 128 KiB.

QString gitProgram()
{
    static const QString found = QStandardPaths::findExecutable(u"git"_s);
    return found;
}

bool liesInRepository(const QString &folder)
{
    for (QDir above(folder); !folder.isEmpty(); above = QDir(QDir::cleanPath(above.path() + u"/.."_s))) {
        if (QFileInfo::exists(above.path() + u"/.git"_s))
            return true;
        if (above.isRoot())
            break;
    }
    return false;
}

QString nameOf(CommitPlan::Change change)
{
    switch (change) {
    case CommitPlan::Change::Added:
        return u"добавлен"_s;
    case CommitPlan::Change::Deleted:
        return u"удалён"_s;
    case CommitPlan::Change::Changed:
        break;
    }
    return u"изменён"_s;
}

/// Without what names another repository or reads paths otherwise, as it is set where a hook has started this program;
/// and with messages in the words that are looked for.
QProcessEnvironment gitEnvironment()
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    for (const QString &name :
         {u"ALTERNATE_OBJECT_DIRECTORIES"_s, u"OBJECT_DIRECTORY"_s, u"DIR"_s, u"WORK_TREE"_s, u"COMMON_DIR"_s,
          u"INDEX_FILE"_s, u"PREFIX"_s, u"NAMESPACE"_s, u"CONFIG"_s, u"CONFIG_PARAMETERS"_s, u"CONFIG_COUNT"_s,
          u"GRAFT_FILE"_s, u"SHALLOW_FILE"_s, u"REPLACE_REF_BASE"_s, u"IMPLICIT_WORK_TREE"_s, u"LITERAL_PATHSPECS"_s,
          u"GLOB_PATHSPECS"_s, u"NOGLOB_PATHSPECS"_s, u"ICASE_PATHSPECS"_s})
        environment.remove(u"GIT_"_s + name);
    environment.insert(u"LANGUAGE"_s, u"en"_s);
    return environment;
}

} // namespace

Committing::Committing(Workspace &workspace, EventBus &events)
    : workspace(workspace)
    , queries(&workspace, &quiet, &queryGrants)
    , actions(&workspace, &events, &actionGrants)
{
    actions.endsGently = true;
    queries.environment = actions.environment = gitEnvironment();
}

bool Committing::isPossible() const
{
    return !gitProgram().isEmpty() && liesInRepository(workspace.root());
}

/// Git by its absolute path, in the project's folder. Paths are no patterns; what git does beside the command in the
/// background would be cut off with it.
void Committing::run(ToolRouter &tools, PermissionManager &permissions, const QStringList &arguments, const Then &then)
{
    QStringList all{u"--literal-pathspecs"_s, u"-c"_s, u"gc.auto=0"_s, u"-c"_s, u"maintenance.auto=false"_s};
    if (&tools == &queries)
        all << u"--no-optional-locks"_s << u"-c"_s << u"core.fsmonitor=false"_s;
    const QString tool = u"run_command"_s;
    const QJsonObject call{{u"program"_s, gitProgram()},
                           {u"arguments"_s, QJsonArray::fromStringList(all + arguments)},
                           {u"timeout_ms"_s, timeoutMs}};
    permissions.grants = {actionGrant(tool, task, workspace.project(), ToolRouter::fingerprint(tool, call))};
    tools.execute(task, userAuthor, {tool}, tool, call, [this, then, noted = generation](const QJsonObject &ended) {
        if (noted != generation)
            return;
        const bool success = ended["success"_L1].toBool();
        const QString told = ended["error"_L1].toString() + ended["stderr"_L1].toString();
        const QString out = ended["stdout"_L1].toString();
        const QString last = told.isEmpty() ? out : told;
        if (ended["timed_out"_L1].toBool())
            return then(false, withOutput(u"Git не закончил за две минуты и остановлен."_s, last));
        then(success, success ? out : gitFault(last));
    });
}

void Committing::look(const QString &ofTask, const QStringList &files, const QString &text)
{
    require(!isCommitting(), u"Дождитесь конца фиксации."_s);
    require(isPossible(), u"Папка проекта не в репозитории git."_s);
    require(!files.isEmpty(), u"Задача не меняла файлов."_s);
    cancel();
    task = ofTask;
    paths.clear();
    for (const QString &file : files)
        paths.append(slashed(file));
    message = text;
    phase = u"looking"_s;
    ask({u"symbolic-ref"_s, u"--short"_s, u"-q"_s, u"HEAD"_s}, [this](bool isOnBranch, const QString &out) {
        if (!isOnBranch)
            return fail(out == gitFault({}) ? u"Репозиторий не на ветке: переключитесь на неё."_s : out);
        branch = out.trimmed();
        ask({u"rev-parse"_s, u"--show-prefix"_s}, [this](bool success, const QString &folder) {
            prefix = folder.endsWith(u'\n') ? folder.chopped(1) : folder;
            success ? lookAtFiles() : fail(folder);
        });
    });
    Q_EMIT changed();
}

void Committing::lookAtFiles()
{
    askState([this](bool success, const QString &status) {
        if (!success)
            return fail(status);
        ask(QStringList{u"ls-files"_s, u"-z"_s, u"-v"_s, u"--"_s} + paths,
            [this, status](bool known, const QString &tracked) { known ? offer(status, tracked) : fail(tracked); });
    });
}

/// What git says of the task's files.
void Committing::askState(const Then &then)
{
    const QStringList status{u"status"_s,
                             u"--porcelain=v1"_s,
                             u"-z"_s,
                             u"--no-renames"_s,
                             u"--ignored=matching"_s,
                             u"--untracked-files=all"_s,
                             u"--"_s};
    ask(status + paths, then);
}

void Committing::offer(const QString &status, const QString &tracked)
{
    seen = status;
    QStringList present = paths;
    present.removeIf([this](const QString &path) { return !QFileInfo::exists(workspace.root() + u'/' + path); });
    plan = commitPlan(paths, status.toUtf8(), prefix, unwatched(present, tracked.toUtf8()));
    phase = u"offer"_s;
    if (plan.files.isEmpty() && plan.left.isEmpty())
        fault = u"Все файлы задачи уже зафиксированы."_s;
    Q_EMIT changed();
}

QStringList Committing::newFiles() const
{
    QStringList names;
    for (const CommitPlan::File &file : plan.files) {
        if (file.isNew)
            names.append(file.path);
    }
    return names;
}

void Committing::commit(const QString &text)
{
    require(phase == "offer"_L1 && !plan.files.isEmpty(), u"Фиксировать нечего."_s);
    require(!text.trimmed().isEmpty(), u"Введите сообщение."_s);
    require(text.toUtf8().size() <= maxMessageBytes, u"Сообщение длиннее 100 КБ: сократите его."_s);
    for (const CommitPlan::File &file : std::as_const(plan.files))
        require(!workspace.handEdit(file.path), u"Файл изменён вне программы: "_s + file.path);
    message = text;
    fault.clear();
    stopping = false;
    phase = u"committing"_s;
    ask({u"symbolic-ref"_s, u"--short"_s, u"-q"_s, u"HEAD"_s}, [this](bool, const QString &out) {
        out.trimmed() == branch ? commitUnlessChanged() : fail(u"Ветка репозитория сменилась: посмотрите ещё раз."_s);
    });
    Q_EMIT changed();
}

/// What has been staged since the offer would be lost.
void Committing::commitUnlessChanged()
{
    askState([this](bool success, const QString &status) {
        if (!success || stopping)
            return fail(success ? QString() : status);
        if (status == seen)
            return commitAll();
        phase = u"looking"_s;
        fault = u"Состояние файлов в git изменилось: посмотрите ещё раз."_s;
        lookAtFiles();
    });
}

/// "--only" makes the commit from an index of its own. It takes just files that git knows, so new ones are announced
/// first, and no more if the commit fails.
void Committing::commitAll()
{
    QStringList all{u"commit"_s, u"--quiet"_s, u"--only"_s, u"--cleanup=whitespace"_s, u"--message="_s + message,
                    u"--"_s};
    for (const CommitPlan::File &file : std::as_const(plan.files))
        all.append(file.path);
    const QStringList announced = newFiles();
    const auto commitThem = [this, all, announced] {
        act(all, [this, announced](bool success, const QString &out) {
            success ? takeOutcome(true, out) : giveUp(announced, out);
        });
    };
    if (announced.isEmpty())
        return commitThem();
    act(QStringList{u"add"_s, u"--intent-to-add"_s, u"--"_s} + announced,
        [this, commitThem, announced](bool success, const QString &out) {
            success && !stopping ? commitThem() : giveUp(announced, out);
        });
}

void Committing::giveUp(const QStringList &announced, const QString &out)
{
    if (announced.isEmpty())
        return takeOutcome(false, out);
    act(QStringList{u"reset"_s, u"--quiet"_s, u"--"_s} + announced,
        [this, out](bool, const QString &) { takeOutcome(false, out); });
}

void Committing::takeOutcome(bool success, const QString &out)
{
    if (!success) {
        fail(out);
        Q_EMIT ended();
        return;
    }
    ask({u"rev-parse"_s, u"--short"_s, u"HEAD"_s}, [this](bool, const QString &name) {
        phase = u"done"_s;
        result = u"Зафиксировано в ветке %1: %2"_s.arg(branch, name.trimmed());
        Q_EMIT changed();
        Q_EMIT ended();
    });
}

/// What was offered can be tried again once the user has put right what git has told.
void Committing::fail(const QString &text)
{
    phase = u"offer"_s;
    fault = text;
    Q_EMIT changed();
}

void Committing::stop()
{
    if (!isCommitting())
        return;
    stopping = true;
    actions.endAll();
}

void Committing::finish()
{
    stop();
    if (!isCommitting())
        return;
    QEventLoop loop;
    connect(this, &Committing::ended, &loop, &QEventLoop::quit);
    QTimer::singleShot(stopLimitMs, &loop, &QEventLoop::quit);
    loop.exec(QEventLoop::ExcludeUserInputEvents);
    if (!isCommitting())
        return;
    ++generation;
    fail({});
}

/// A commit under way goes on to its end.
void Committing::cancel()
{
    if (isCommitting())
        return;
    ++generation;
    queries.cancelAll();
    phase.clear();
    branch.clear();
    fault.clear();
    result.clear();
    plan = {};
    Q_EMIT changed();
}

QVariantMap Committing::state() const
{
    QVariantList files;
    for (const CommitPlan::File &file : plan.files)
        files.append(QVariantMap{{u"path"_s, file.path}, {u"change"_s, nameOf(file.change)}});
    QVariantList left;
    for (const CommitPlan::Left &file : plan.left)
        left.append(QVariantMap{{u"path"_s, file.path}, {u"reason"_s, file.reason}});
    return {{u"phase"_s, phase},   {u"branch"_s, branch}, {u"message"_s, message}, {u"fault"_s, fault},
            {u"result"_s, result}, {u"files"_s, files},   {u"left"_s, left}};
}

} // namespace vesk
