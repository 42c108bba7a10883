#pragma once

#include "engine.h"
#include "event_bus.h"
#include "permissions.h"
#include "store.h"
#include "task_journal.h"
#include "tool_router.h"
#include "workspace.h"

#include <QFileInfo>
#include <QString>

namespace vesk {

/// All that carries out tasks over one database, wired together: whoever runs tasks, with a window or without, owns one
/// of these and a model. The members are for use as they are.
class Core {
public:
    /// Opens the database, or makes it. Throws std::runtime_error when it can't be used. The model is not owned and
    /// outlives the core.
    Core(const QString &databaseFile, ILLMProvider *model)
        : store(databaseFile)
        , workspace(store)
        , tools(&workspace, &events, &permissions)
        , engine(store, workspace, events, permissions, tools, model)
        , journal(store, workspace, engine)
    {
        const QString folder = QFileInfo(databaseFile).absolutePath();
        engine.copiesFolder = folder + QStringLiteral("/copies");
        engine.picturesFolder = folder + QStringLiteral("/pages");
    }

    /// Puts in order what earlier processes have left: unfinished tasks, copies of projects, old pictures. For the
    /// process that holds the data folder. Returns why it can't be done, for people; empty when all is done. What is
    /// left is there for reading, and is put in order at the next start.
    [[nodiscard]] QString recover();

    Store store;
    EventBus events;
    Workspace workspace;
    PermissionManager permissions;
    ToolRouter tools;
    Engine engine;
    TaskJournal journal;
};

} // namespace vesk
