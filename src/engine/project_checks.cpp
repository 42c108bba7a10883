// Which real checks a project needs that its plan left out.

#include "project_checks.h"

#include "node_kind.h"

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

bool isScript(const QString &path)
{
    return path.endsWith(".js"_L1) || path.endsWith(".mjs"_L1) || path.endsWith(".cjs"_L1);
}

bool needsPackages(const QJsonObject &package)
{
    return !package["dependencies"_L1].toObject().isEmpty() || !package["devDependencies"_L1].toObject().isEmpty();
}

} // namespace

BuildChecks buildChecks(const QJsonObject &package, const QStringList &codeIds, const CheckTools &tools)
{
    if (package["scripts"_L1]["build"_L1].toString().isEmpty())
        return {};
    if (tools.node.isEmpty() || tools.npm.isEmpty())
        return {{}, u"Node.js/npm не найдены: сборка package.json не выполнена."_s};

    BuildChecks needed;
    if (needsPackages(package) && !tools.packagesInstalled)
        needed.checks.append({u"Установить зависимости проекта"_s,
                              {tools.npm, u"install"_s, u"--no-audit"_s, u"--no-fund"_s},
                              false,
                              codeIds});
    needed.checks.append({u"Проверить сборку проекта"_s, {tools.npm, u"run"_s, u"build"_s}, true, codeIds});
    return needed;
}

QList<ProjectCheck> syntaxChecks(const QList<Node> &nodes)
{
    QList<ProjectCheck> needed;
    for (const Node &node : nodes) {
        const QString path = pathOf(node);
        if (isCode(node) && isScript(path))
            needed.append({u"Проверить синтаксис "_s + path, {u"--check"_s, path}, true, {node.id}});
    }
    return needed;
}

QString pageToCheck(const QList<Node> &nodes, bool hasBuiltPage)
{
    QString page;
    for (const Node &node : nodes) {
        if (!isCode(node) || !pathOf(node).endsWith(".html"_L1))
            continue;
        if (page.isEmpty() || pathOf(node) == "index.html"_L1)
            page = pathOf(node);
    }
    return !page.isEmpty() && hasBuiltPage ? u"dist/index.html"_s : page;
}

} // namespace vesk
