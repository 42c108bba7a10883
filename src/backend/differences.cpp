// Comparisons beside the interface.

#include "differences.h"

#include "helpers.h"

#include <QMetaObject>

#include <algorithm>
#include <exception>
#include <utility>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

bool isThere(const QJsonObject &record)
{
    return !record.isEmpty() && !record["deleted"_L1].toBool();
}

} // namespace

Differences::Differences(const Workspace &workspace)
    : workspace(workspace)
    , stale(std::make_shared<std::atomic_bool>(false))
{
    pool.setMaxThreadCount(1);
    colourPool.setMaxThreadCount(1);
}

Differences::~Differences()
{
    ++generation;
    *stale = true;
    pool.clear();
    pool.waitForDone();
    colourPool.waitForDone();
}

void Differences::show(const QString &title, const QList<FileChange> &changes)
{
    QList<File> all;
    for (const FileChange &change : changes)
        all.append({change, false, {}, {}, {}});
    begin(title, all);
}

void Differences::showEdit(const HandEdit &edit)
{
    const bool isOnDisk = edit.kind != HandEdit::Kind::Deleted;
    begin(u"Изменено вне программы"_s,
          {{{edit.path, workspace.latest(edit.path), isOnDisk ? QJsonObject{{u"path"_s, edit.path}} : QJsonObject()},
            isOnDisk,
            {},
            {},
            {}}});
}

void Differences::showRevisions(const QString &path, int older, int newer)
{
    show(u"Версия %1 и версия %2"_s.arg(older).arg(newer),
         {{path, workspace.revision(path, older), workspace.revision(path, newer)}});
    olderRevision = older;
    newerRevision = newer;
}

void Differences::clear()
{
    begin({}, {});
}

void Differences::begin(const QString &title, const QList<File> &all)
{
    ++generation;
    *stale = true;
    heading = title;
    olderRevision = 0;
    newerRevision = 0;
    compareds = all;
    comparing = false;
    selected = all.isEmpty() ? QString() : all.constFirst().change.path;
    model.show({}, beside);
    compareNext();
    Q_EMIT changed();
}

/// The file in view comes first.
void Differences::compareNext()
{
    const auto isLeft = [](const File &file) { return !file.compared && file.fault.isEmpty(); };
    auto next = std::ranges::find_if(compareds,
                                     [&](const File &file) { return isLeft(file) && file.change.path == selected; });
    if (next == compareds.end())
        next = std::ranges::find_if(compareds, isLeft);
    comparing = next != compareds.end();
    if (!comparing)
        return;
    const qsizetype at = next - compareds.begin();
    File &file = compareds[at];
    try {
        auto before = workspace.bytesOf(file.change.before);
        auto after
            = file.fromDisk ? std::optional(workspace.read(file.change.path)) : workspace.bytesOf(file.change.after);
        pool.start([this, at, noted = generation, path = file.change.path, before = std::move(before),
                    after = std::move(after)]() mutable {
            auto compared = ComparedFile::of(path, std::move(before), std::move(after));
            // The destructor waits for this thread, and what is sent then never arrives.
            QMetaObject::invokeMethod(
                this,
                [this, at, noted, compared] {
                    if (noted == generation)
                        take(at, compared);
                },
                Qt::QueuedConnection);
        });
    } catch (const std::exception &fault) {
        file.fault = textOf(fault);
        // On a turn of its own, since there may be many.
        QMetaObject::invokeMethod(
            this,
            [this, noted = generation] {
                if (noted == generation)
                    compareNext();
                Q_EMIT changed();
            },
            Qt::QueuedConnection);
    }
}

void Differences::take(qsizetype at, const std::shared_ptr<const ComparedFile> &compared)
{
    compareds[at].compared = compared;
    if (compared->path == selected)
        showLines();
    compareNext();
    Q_EMIT changed();
}

const Differences::File *Differences::shownFile() const
{
    const auto found = std::ranges::find_if(compareds, [&](const File &file) { return file.change.path == selected; });
    return found == compareds.end() ? nullptr : &*found;
}

void Differences::showLines()
{
    const File *file = shownFile();
    model.show(file ? file->compared : nullptr, beside);
    if (file && file->colours)
        model.setColours(file->colours);
    else
        colour();
}

/// Text is shown at once and takes its colours when they are there.
void Differences::colour()
{
    const File *file = shownFile();
    *stale = true;
    if (!file || !file->compared || file->compared->binary)
        return;
    stale = std::make_shared<std::atomic_bool>(false);
    colourPool.start([this, at = file - compareds.constData(), compared = file->compared, ground = dark, stop = stale] {
        auto colours = std::make_shared<FileColours>();
        colours->old = coloursOf(compared->path, compared->oldLines, ground, *stop);
        colours->now = coloursOf(compared->path, compared->newLines, ground, *stop);
        QMetaObject::invokeMethod(
            this,
            [this, at, stop, colours] {
                if (*stop)
                    return;
                compareds[at].colours = colours;
                if (&compareds[at] == shownFile())
                    model.setColours(colours);
            },
            Qt::QueuedConnection);
    });
}

void Differences::setDark(bool ground)
{
    if (ground == dark)
        return;
    dark = ground;
    for (File &file : compareds)
        file.colours.reset();
    colour();
    Q_EMIT changed();
}

void Differences::select(const QString &path)
{
    if (path == selected)
        return;
    selected = path;
    showLines();
    Q_EMIT changed();
}

void Differences::setBeside(bool side)
{
    if (side == beside)
        return;
    beside = side;
    showLines();
    Q_EMIT changed();
}

QVariantList Differences::files() const
{
    QVariantList shown;
    for (const File &file : compareds) {
        const bool was = isThere(file.change.before);
        const bool is = isThere(file.change.after);
        const LineCounts counts = file.compared ? file.compared->counts : LineCounts();
        shown.append(QVariantMap{{u"path"_s, file.change.path},
                                 {u"change"_s,
                                  !was      ? u"добавлен"_s
                                      : !is ? u"удалён"_s
                                            : u"изменён"_s},
                                 {u"added"_s, counts.added},
                                 {u"removed"_s, counts.removed},
                                 {u"known"_s, file.compared && !file.compared->binary}});
    }
    return shown;
}

QString Differences::note() const
{
    const File *file = shownFile();
    if (!file)
        return compareds.isEmpty() ? u"Изменений нет."_s : QString();
    if (!file->fault.isEmpty())
        return file->fault;
    if (!file->compared)
        return u"Сравниваю…"_s;
    if (file->compared->binary)
        return u"Файл не текстовый."_s;
    return file->compared->blocks.isEmpty() ? u"Строки не изменились."_s : QString();
}

LineCounts Differences::total() const
{
    LineCounts sum;
    for (const File &file : compareds) {
        if (file.compared) {
            sum.added += file.compared->counts.added;
            sum.removed += file.compared->counts.removed;
        }
    }
    return sum;
}

} // namespace vesk
