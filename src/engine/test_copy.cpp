// A project without its program, for tests to fail in.

#include "test_copy.h"

#include "by_products.h"
#include "helpers.h"
#include "made_folders.h"
#include "open_watch.h"
#include "test_trial.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <QThreadPool>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qint64 maxBytes = qint64(20) << 20;
constexpr int maxCopied = 10000;
constexpr qint64 maxTextBytes = 1 << 20;
constexpr auto allEntries = QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot;

bool namesServer(const QByteArray &text)
{
    return text.contains("localhost") || text.contains("127.0.0.1") || text.contains("http://")
        || text.contains("https://");
}

/// Also what stands in folders that may not be written.
void removeTree(const QString &path)
{
    constexpr auto usable = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner;
    QDirIterator folders(path, QDir::Dirs | QDir::Hidden | QDir::NoSymLinks | QDir::NoDotAndDotDot,
                         QDirIterator::Subdirectories);
    while (folders.hasNext())
        QFile::setPermissions(folders.next(), usable);
    QDir(path).removeRecursively();
}

/// Each step is false when there is nothing to be found out by this copy.
class Copying {
public:
    Copying(const CopyOrder &order, const QString &target)
        : order(order)
        , target(target)
    {
    }

    bool copyFolder(const QString &path, bool isWanted)
    {
        folders.append(from(path));
        if (isWanted && !QDir().mkpath(to(path)))
            return false;
        const QFileInfoList list = QDir(from(path)).entryInfoList(allEntries);
        return std::ranges::all_of(list, [&](const QFileInfo &entry) {
            const QString inner = path.isEmpty() ? entry.fileName() : path + u'/' + entry.fileName();
            return ++entries <= maxCopied && copyEntry(entry, inner, isWanted);
        });
    }

    bool hasEmptied = false; ///< A source of the program.
    QStringList folders; ///< Of the project, without those of packages.

private:
    QString from(const QString &path) const { return path.isEmpty() ? order.root : order.root + u'/' + path; }
    QString to(const QString &path) const { return path.isEmpty() ? target : target + u'/' + path; }

    bool copyEntry(const QFileInfo &entry, const QString &path, bool isWanted)
    {
        if (entry.isSymLink() || holdsHistory(entry.fileName()))
            return true;
        if (entry.isDir() && !holdsOwn(path) && (holdsPackages(entry.fileName()) || entry.fileName() == "vendor"_L1))
            return !isWanted || (!holdsProject(entry.filePath()) && linkPackages(path));
        if (entry.isDir())
            return copyFolder(path, isWanted && !isMachineMade(entry.fileName()));
        const bool isWritten = order.written.contains(path);
        // Opening a pipe would wait for whoever writes into it.
        return !entry.isFile() || (!isWritten && (!isWanted || isCompiled(entry))) || copyFile(entry, path);
    }

    /// A folder of that name that the task has written into is no folder of packages.
    bool holdsOwn(const QString &folder) const
    {
        return std::ranges::any_of(order.written,
                                   [inner = folder + u'/'](const QString &path) { return path.startsWith(inner); });
    }

    /// Whether the project itself is installed among its packages, where its tests would find it whole.
    bool holdsProject(const QString &packages) const
    {
        QSet<QString> own;
        for (const QString &path : order.written) {
            const QStringList parts = path.split(u'/');
            for (const QString &part : parts)
                own.insert(part.section(u'.', 0, 0));
        }
        const QFileInfoList versions = QDir(packages + u"/lib"_s).entryInfoList({u"python*"_s}, QDir::Dirs);
        return std::ranges::any_of(versions, [&](const QFileInfo &version) {
            const QDir site(version.filePath() + u"/site-packages"_s);
            const QStringList modules = site.entryList(QDir::AllEntries | QDir::NoDotAndDotDot);
            return std::ranges::any_of(modules,
                                       [&](const QString &each) { return own.contains(each.section(u'.', 0, 0)); });
        });
    }

    bool copyFile(const QFileInfo &entry, const QString &path)
    {
        bytes += entry.size();
        QFile source(entry.filePath());
        if (bytes > maxBytes || !source.open(QIODevice::ReadOnly) || !QDir().mkpath(QFileInfo(to(path)).path()))
            return false;
        const QByteArray text = source.read(maxTextBytes);
        const TrialFile kind = fileInTrial(path, QString::fromUtf8(text), order.named);
        // A server that runs already would answer with the whole program.
        if (kind == TrialFile::Kept)
            return !(isSource(path) && namesServer(text)) && source.copy(to(path));
        if (kind == TrialFile::Mixed)
            return false;
        hasEmptied = hasEmptied || (isSource(path) && !text.trimmed().isEmpty());
        QFile empty(to(path));
        return empty.open(QIODevice::WriteOnly) && empty.setPermissions(source.permissions());
    }

    /// One by one, so that what tools write beside them stays in the copy. Packages of the project itself are linked
    /// among them, and have to be the copy's.
    bool linkPackages(const QString &path)
    {
        const QFileInfoList list = QDir(from(path)).entryInfoList(allEntries);
        return QDir().mkpath(to(path)) && std::ranges::all_of(list, [&](const QFileInfo &entry) {
                   const QString inner = path + u'/' + entry.fileName();
                   if (++entries > maxCopied)
                       return false;
                   if (entry.fileName().startsWith(u'@') && !entry.isSymLink())
                       return linkPackages(inner);
                   QString end = entry.isSymLink() ? entry.symLinkTarget() : entry.filePath();
                   if (entry.isSymLink() && (end + u'/').startsWith(order.root + u'/'))
                       end = target + end.sliced(order.root.size());
                   return entry.fileName() == ".cache"_L1 || QFile::link(end, to(inner));
               });
    }

    const CopyOrder &order;
    const QString target;
    qint64 bytes = 0;
    int entries = 0;
};

} // namespace

TestCopy::TestCopy(const QString &folder)
    : folder(folder)
{
}

TestCopy::~TestCopy()
{
    QThreadPool::globalInstance()->start([own = QFileInfo(folder).path()] {
        removeTree(own);
        QDir().rmdir(QFileInfo(own).path()); // Succeeds with the last one.
    });
}

std::shared_ptr<TestCopy> TestCopy::make(const CopyOrder &order)
{
    if ((order.copies + u'/').startsWith(order.root + u'/'))
        return nullptr;
    // Under the name of the project, which its tests may know.
    const QString target = order.copies + u'/' + id() + u'/' + QFileInfo(order.root).fileName();
    std::shared_ptr<TestCopy> copy(new TestCopy(target));
    Copying copying(order, target);
    if (!copying.copyFolder({}, true) || !copying.hasEmptied)
        return nullptr;
    copy->watch = std::make_unique<OpenWatch>(copying.folders);
    return copy->watch->isWatching() ? copy : nullptr;
}

bool TestCopy::wasBypassed()
{
    return watch->hasSeenOpening();
}

void removeCopies(const QString &copies)
{
    removeTree(copies);
}

} // namespace vesk
