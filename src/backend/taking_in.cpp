// A folder becomes a project.

#include "taking_in.h"

#include "helpers.h"
#include "project_record.h"
#include "slice.h"
#include "store.h"

#include <QFileInfo>

#include <exception>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype batch = 16;
constexpr qint64 takeInBatchBytes = 256 * 1024; ///< Of one transaction.

QString noteKey(const QString &project)
{
    return u"take-in:"_s + project;
}

} // namespace

TakingIn::TakingIn(Store &store, Workspace &workspace)
    : store(store)
    , workspace(workspace)
{
    connect(&timer, &QTimer::timeout, this, &TakingIn::step);
}

void TakingIn::look(const QString &folder)
{
    cancel();
    project = id();
    auto place = std::make_unique<Workspace>(store);
    place->open(folder, project);
    offered = std::move(place);
    agreed = false;
    beginLook(*offered);
}

void TakingIn::beginLook(Workspace &in)
{
    scan = std::make_unique<TakeIn>(in);
    phase = u"looking"_s;
    done = 0;
    looked = false;
    timer.start(0);
    Q_EMIT changed();
}

QString TakingIn::accept()
{
    require(phase == "offer"_L1, u"Сначала выберите папку."_s);
    const QString root = offered->root();
    const QString taken = project;
    store.atomicDurable([&] {
        store.put(u"projects"_s, taken, {}, projectRecord(taken, QFileInfo(root).fileName(), root));
        store.put(u"settings"_s, noteKey(taken), {}, {{u"lazy"_s, scan->isLarge()}, {u"pending"_s, !scan->isLarge()}});
    });
    cancel();
    return taken;
}

void TakingIn::cancel()
{
    timer.stop();
    scan.reset();
    offered.reset();
    phase.clear();
    agreed = false;
    Q_EMIT changed();
}

void TakingIn::resume()
{
    cancel();
    if (workspace.project().isEmpty() || !store.get(u"settings"_s, noteKey(workspace.project()))["pending"_L1].toBool())
        return;
    agreed = true;
    beginLook(workspace);
    phase = u"taking"_s;
}

void TakingIn::step()
{
    const Slice slice;
    try {
        while (timer.isActive() && !slice.isOver())
            goOn();
    } catch (const std::exception &fault) {
        // What was agreed stays noted, and goes on when the project is opened again.
        cancel();
        Q_EMIT failed(textOf(fault));
    }
    Q_EMIT changed();
}

void TakingIn::goOn()
{
    if (!looked) {
        looked = !scan->lookOn();
        return;
    }
    if (!agreed) {
        timer.stop();
        phase = u"offer"_s;
    } else if (done < scan->files().size()) {
        takeBatch();
    } else {
        store.atomicDurable([this] { store.put(u"settings"_s, noteKey(workspace.project()), {}, {}); });
        cancel();
    }
}

void TakingIn::takeBatch()
{
    QStringList paths;
    qint64 bytes = 0;
    for (; done < scan->files().size() && paths.size() < batch && bytes < takeInBatchBytes; ++done) {
        paths.append(scan->files()[done].path);
        bytes += scan->files()[done].bytes;
    }
    workspace.takeNew(paths);
}

QVariantMap TakingIn::state() const
{
    if (phase.isEmpty())
        return {{u"phase"_s, phase}};
    QVariantList left;
    for (const auto &[reason, count] : scan->leftOut().asKeyValueRange())
        left.append(QVariantMap{{u"reason"_s, reason}, {u"count"_s, count}});
    return {{u"phase"_s, phase},
            {u"folder"_s, (offered ? *offered : workspace).root()},
            {u"count"_s, scan->files().size()},
            {u"bytes"_s, scan->bytes()},
            {u"done"_s, done},
            {u"large"_s, scan->isLarge()},
            {u"left"_s, left}};
}

} // namespace vesk
