#pragma once

#include "take_in.h"
#include "workspace.h"

#include <QObject>
#include <QTimer>
#include <QVariant>

#include <memory>

namespace vesk {

class Store;

/// A folder of the user's becomes a project: it is looked at, offered, and taken in after a yes, a few milliseconds at
/// a time. What a crash has interrupted goes on when the project is opened again: a file is taken in once.
class TakingIn : public QObject {
    Q_OBJECT
public:
    TakingIn(Store &store, Workspace &workspace);

    /// Looks at a folder that is no project yet; `state` then says what is offered. Throws as Workspace::open() does.
    void look(const QString &folder);
    /// The yes: gives the id of the project, which is stored; whoever opens it goes on with resume().
    QString accept();
    void cancel();
    /// Goes on with what was agreed for the project in the workspace, if there is something.
    void resume();
    bool isTaking() const { return phase == u"taking"; }

    /// {"phase": "" | "looking" | "offer" | "taking", "folder", "count", "bytes", "done", "large", "left": [{"reason",
    /// "count"}]}
    QVariantMap state() const;

Q_SIGNALS:
    void changed();
    void failed(QString text);

private:
    void step();
    void goOn();
    void takeBatch();
    void beginLook(Workspace &in);

    Store &store;
    Workspace &workspace;
    std::unique_ptr<Workspace> offered; ///< Bound to the folder that is looked at.
    std::unique_ptr<TakeIn> scan;
    QTimer timer;
    QString phase;
    QString project; ///< Of `offered`.
    qsizetype done = 0;
    bool looked = false; ///< At all folders.
    bool agreed = false; ///< What is being looked at is to be taken in.
};

} // namespace vesk
