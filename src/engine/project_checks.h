#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

namespace vesk {

struct Node;

/// A check that a project needs, run by the program "node".
struct ProjectCheck {
    QString title; ///< For people, in Russian.
    QJsonArray arguments;
    bool verification = true; ///< Its failure says something about the code; else it only prepares the next check.
    QStringList after; ///< Ids of nodes.

    bool operator==(const ProjectCheck &) const = default;
};

/// What there is to check a project with.
struct CheckTools {
    QString node; ///< Paths; empty for what is not installed.
    QString npm;
    bool packagesInstalled = false; ///< The project has its folder "node_modules".
};

/// What the project's package asks for.
struct BuildChecks {
    QList<ProjectCheck> checks; ///< In order, each waiting for the one before it.
    QString limitation; ///< What cannot be checked here, and why; empty when nothing.
};

/// Of the content of package.json and the nodes that write code: packages are installed where there are none and some
/// are needed, then the script "build" is run, if there is one.
BuildChecks buildChecks(const QJsonObject &package, const QStringList &codeIds, const CheckTools &tools);

/// One for each script file, in the order of the nodes; for projects without a build.
QList<ProjectCheck> syntaxChecks(const QList<Node> &nodes);

/// The page of the project that a browser can open: "index.html", else the first ".html", or what a build has made of
/// it, "dist/index.html". Empty when there is no page.
QString pageToCheck(const QList<Node> &nodes, bool hasBuiltPage);

} // namespace vesk
