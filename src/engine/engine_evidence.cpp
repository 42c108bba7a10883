// What the ledger of a finished task is read from.

#include "engine_p.h"

#include "by_products.h"
#include "evidence.h"
#include "made_folders.h"

#include <QDateTime>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr int maxStrayEntries = 5000; ///< Of a folder that commands have filled.
constexpr qsizetype maxStrays = 50;

/// Whether a folder holds what nobody wrote, or media of the project.
bool isNobodys(const QString &name)
{
    return name == "assets"_L1 || isMachineMade(name);
}

/// Also what package managers note for themselves.
bool isNobodys(const QFileInfo &file)
{
    static const QStringList names{u"package-lock.json"_s, u"yarn.lock"_s, u"pnpm-lock.yaml"_s, u"Cargo.lock"_s,
                                   u"poetry.lock"_s,       u"uv.lock"_s,   u"go.sum"_s,         u"composer.lock"_s};
    return names.contains(file.fileName()) || isNobodys(file.fileName()) || isCompiled(file);
}

} // namespace

QJsonObject Engine::readEvidence() const
{
    return evidenceOf({spec, graph.nodes, runs, workspace.root(),
                       [this](const QString &path) {
                           return pathFault(path).isEmpty() && QFileInfo(workspace.root() + u'/' + path).isFile();
                       },
                       strayFiles(), hollowTests});
}

/// Files that appeared while programs ran and that are no revisions of ours. Folders that tools make, which may hold
/// any number of them, are not looked into.
Strays Engine::strayFiles() const
{
    const auto isProgram = [](const QJsonObject &run) { return run["role"_L1].toString() == "terminal"_L1; };
    if (std::ranges::none_of(runs, isProgram))
        return {};
    const QDateTime began = QDateTime::fromString(runs.constFirst()["created_at"_L1].toString(), Qt::ISODateWithMs);
    Strays strays;
    QStringList folders{workspace.root()};
    for (int seen = 0; !folders.isEmpty() && !strays.isCut;) {
        QDirIterator entries(folders.takeLast(), QDir::Files | QDir::Dirs | QDir::NoSymLinks | QDir::NoDotAndDotDot);
        while (entries.hasNext() && !strays.isCut) {
            const QFileInfo entry = entries.nextFileInfo();
            strays.isCut = ++seen > maxStrayEntries || strays.paths.size() == maxStrays;
            if (entry.isDir() && !isNobodys(entry.fileName()))
                folders.append(entry.filePath());
            const QString path = entry.filePath().sliced(workspace.root().size() + 1);
            if (entry.isFile() && !strays.isCut && entry.lastModified() >= began && !isNobodys(entry)
                && workspace.latest(path).isEmpty())
                strays.paths.append(path);
        }
    }
    strays.paths.sort();
    return strays;
}

/// One judge's word. An answer about another file or another version than the one in question is asked for once more;
/// what then comes is taken, and the ledger does not count it.
void Engine::askJudge(const QString &role, const QJsonObject &artifact, bool again, const Answer &callback)
{
    enqueue(role, artifact, [=, this](const QJsonObject &review) {
        if (again || !isForeignReview(review, artifact)) {
            callback(review);
            return;
        }
        publish(u"AutomaticCorrection"_s, u"Рецензия дана другому файлу или другой версии. Спрашиваю ещё раз."_s);
        QJsonObject repeated = artifact;
        repeated["review_fault"_L1]
            = u"Прошлый ответ назвал другой файл или другую версию. Проверь именно artifact.file."_s;
        askJudge(role, repeated, true, callback);
    });
}

} // namespace vesk
