// A look at what a large project has.

#include "tree_watch.h"

#include "project_map.h"
#include "slice.h"
#include "workspace.h"

#include <QMetaObject>

#include <exception>
#include <utility>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype mostFiles = 100000;

} // namespace

TreeWatch::TreeWatch(const Workspace &workspace)
    : workspace(workspace)
{
    pool.setMaxThreadCount(1);
    connect(&timer, &QTimer::timeout, this, &TreeWatch::lookOn);
}

TreeWatch::~TreeWatch()
{
    pool.waitForDone();
}

void TreeWatch::look()
{
    ++generation;
    timer.stop();
    scan.reset();
    found.clear();
    drawn.clear();
    if (workspace.takesLazily()) {
        scan = std::make_unique<TakeIn>(workspace);
        timer.start(0);
    }
    Q_EMIT changed();
}

void TreeWatch::lookOn()
{
    const Slice slice;
    bool isMore = true;
    try {
        while (isMore && !slice.isOver())
            isMore = scan->lookOn() && scan->files().size() < mostFiles;
    } catch (const std::exception &) {
        isMore = false; // the folder is gone; whoever works on it is told so
    }
    if (isMore)
        return;
    timer.stop();
    draw();
}

void TreeWatch::draw()
{
    QList<MappedFile> files;
    for (const TakeIn::File &file : scan->files())
        files.append({file.path, file.bytes});
    scan.reset();
    pool.start([this, noted = generation, files = std::move(files)] {
        QStringList paths;
        for (const MappedFile &file : files)
            paths.append(file.path);
        QMetaObject::invokeMethod(
            this,
            [this, noted, paths, map = projectMap(files, maxMapChars)] {
                if (noted != generation)
                    return;
                found = paths;
                drawn = map;
                Q_EMIT changed();
            },
            Qt::QueuedConnection);
    });
}

} // namespace vesk
