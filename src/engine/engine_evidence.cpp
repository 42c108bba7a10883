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

/// Also media of the project, and what package managers note for themselves.
bool isNobodys(const QString &path, const QFileInfo &file)
{
    static const QStringList names{u"package-lock.json"_s, u"yarn.lock"_s, u"pnpm-lock.yaml"_s, u"Cargo.lock"_s,
                                   u"poetry.lock"_s,       u"uv.lock"_s,   u"go.sum"_s,         u"composer.lock"_s};
    const QStringList parts = path.split(u'/');
    return names.contains(file.fileName()) || parts.contains(u"assets"_s)
        || std::ranges::any_of(parts, [](const QString &part) { return isMachineMade(part); }) || isCompiled(file);
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

/// Files that appeared while programs ran and that are no revisions of ours.
QStringList Engine::strayFiles() const
{
    const auto isProgram = [](const QJsonObject &run) { return run["role"_L1].toString() == "terminal"_L1; };
    if (std::ranges::none_of(runs, isProgram))
        return {};
    const QDateTime began = QDateTime::fromString(runs.constFirst()["created_at"_L1].toString(), Qt::ISODateWithMs);
    QStringList strays;
    QDirIterator entries(workspace.root(), QDir::Files | QDir::NoSymLinks, QDirIterator::Subdirectories);
    for (int seen = 0; entries.hasNext() && seen < maxStrayEntries && strays.size() < maxStrays; ++seen) {
        const QFileInfo file = entries.nextFileInfo();
        const QString path = file.filePath().sliced(workspace.root().size() + 1);
        if (!isNobodys(path, file) && file.lastModified() >= began && workspace.latest(path).isEmpty())
            strays.append(path);
    }
    strays.sort();
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
