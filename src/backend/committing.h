#pragma once

#include "commit_plan.h"
#include "event_bus.h"
#include "permissions.h"
#include "tool_router.h"

#include <QObject>
#include <QVariant>

#include <functional>

namespace vesk {

class Workspace;

/// One commit of a task's files on the current branch of the repository that the project lies in: what it would hold is
/// shown first and made after a yes. Git is run as every program is; the user's press is the grant.
///
/// It is a commit as its user would make it with `git commit --only`: hooks run, it is signed if the repository says
/// so, and what else is staged stays staged. Nothing is forced, and no other file goes along. Main thread only.
class Committing : public QObject {
    Q_OBJECT
public:
    /// The commit itself is told to `events`, looking is not.
    Committing(Workspace &workspace, EventBus &events);

    /// Whether git is there and the project's folder lies in a repository.
    bool isPossible() const;
    /// Looks what a commit of these files would hold.
    void look(const QString &task, const QStringList &paths, const QString &message);
    /// The yes. Throws when there is nothing to commit, the message is empty, or a file was edited since.
    void commit(const QString &message);
    void cancel();
    /// Whether git is changing something right now.
    bool isCommitting() const { return phase == u"committing"; }
    /// Breaks a commit off: it ends as a failed one does, with the index as it was.
    void stop();
    /// The same for the end of the program, which waits for it 3 s at most.
    void finish();

    /// {"phase": "" | "looking" | "offer" | "committing" | "done", "branch", "message", "fault", "result",
    ///  "files": [{"path", "change"}], "left": [{"path", "reason"}]}
    QVariantMap state() const;

Q_SIGNALS:
    void changed();
    /// The commit has been tried: hooks may have changed files.
    void ended();

private:
    using Then = std::function<void(bool success, const QString &out)>;

    void run(ToolRouter &tools, PermissionManager &permissions, const QStringList &arguments, const Then &then);
    void ask(const QStringList &arguments, const Then &then) { run(queries, queryGrants, arguments, then); }
    void act(const QStringList &arguments, const Then &then) { run(actions, actionGrants, arguments, then); }
    void lookAtFiles();
    void askState(const Then &then);
    void offer(const QString &status, const QString &tracked);
    void commitUnlessChanged();
    void commitAll();
    void giveUp(const QStringList &announced, const QString &out);
    void takeOutcome(bool success, const QString &out);
    void fail(const QString &text);
    QStringList newFiles() const;

    Workspace &workspace;
    EventBus quiet;
    PermissionManager queryGrants;
    PermissionManager actionGrants;
    ToolRouter queries;
    ToolRouter actions;

    QString phase;
    QString task;
    QStringList paths;
    QString prefix; ///< The project's folder in the repository.
    QString seen; ///< What git said of the files when they were offered.
    QString message;
    QString branch;
    QString fault;
    QString result;
    CommitPlan plan;
    bool stopping = false; ///< The commit under way.
    quint32 generation = 0; ///< Of look() and cancel(): what an earlier one has asked counts no more.
};

} // namespace vesk
