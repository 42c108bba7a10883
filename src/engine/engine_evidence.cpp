// What the ledger of a finished task is read from.

#include "engine_p.h"

#include "evidence.h"

#include <QDateTime>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr int maxEntries = 5000; ///< Of a folder that commands have filled.
constexpr qsizetype maxStrays = 50;

/// Folders that hold what tools make for themselves.
bool isMachineMade(const QString &path)
{
    static const QStringList folders{u".git"_s,   u"node_modules"_s,  u"dist"_s,  u"build"_s,
                                     u"out"_s,    u"target"_s,        u".venv"_s, u"__pycache__"_s,
                                     u"assets"_s, u".pytest_cache"_s, u".cache"_s};
    const QStringList parts = path.split(u'/');
    return std::ranges::any_of(parts, [](const QString &part) { return folders.contains(part); });
}

/// What tools note for themselves, and what a compiler makes of files that were read.
bool isByProduct(const QFileInfo &file)
{
    static const QStringList names{u"package-lock.json"_s, u"yarn.lock"_s, u"pnpm-lock.yaml"_s, u"Cargo.lock"_s,
                                   u"poetry.lock"_s,       u"uv.lock"_s,   u"go.sum"_s,         u"composer.lock"_s};
    static const QStringList suffixes{u"o"_s,     u"a"_s,   u"d"_s,   u"so"_s,  u"pyc"_s,
                                      u"class"_s, u"jar"_s, u"exe"_s, u"obj"_s, u"tsbuildinfo"_s};
    QFile content(file.filePath());
    const bool isProgram = file.isExecutable() && content.open(QIODevice::ReadOnly) && content.read(512).contains('\0');
    return isProgram || names.contains(file.fileName()) || suffixes.contains(file.suffix())
        || file.fileName() == "a.out"_L1;
}

} // namespace

QJsonObject Engine::readEvidence() const
{
    return evidenceOf({spec, graph.nodes, runs, workspace.root(),
                       [this](const QString &path) {
                           return pathFault(path).isEmpty() && QFileInfo(workspace.root() + u'/' + path).isFile();
                       },
                       strayFiles()});
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
    for (int seen = 0; entries.hasNext() && seen < maxEntries && strays.size() < maxStrays; ++seen) {
        const QFileInfo file = entries.nextFileInfo();
        const QString path = file.filePath().sliced(workspace.root().size() + 1);
        if (!isMachineMade(path) && !isByProduct(file) && file.lastModified() >= began
            && workspace.latest(path).isEmpty())
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
