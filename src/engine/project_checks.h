#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

#include <functional>

namespace vesk {

struct Node;

/// A check that a project needs.
struct ProjectCheck {
    QString title; ///< For people, in Russian.
    QJsonArray arguments;
    bool verification = true; ///< Its failure says something about the code; else it only prepares the next check.
    QStringList after; ///< Ids of nodes.
    QString program = {}; ///< Empty for the program "node", `ownParser` for what the application does itself.

    bool operator==(const ProjectCheck &) const = default;
};

/// What there is to check a project with.
struct CheckTools {
    QString node; ///< Paths; empty for what is not installed.
    QString npm;
    std::function<bool(const QString &package)> isInstalled; ///< In the project's folder "node_modules".
};

/// What the project's package asks for.
struct BuildChecks {
    QList<ProjectCheck> checks; ///< In order, each waiting for the one before it.
    QString limitation; ///< What cannot be checked here, and why; empty when nothing.
};

/// Of the content of package.json and the nodes that write code: packages are installed where there are none and some
/// are needed, then the script "build" is run, if there is one.
BuildChecks buildChecks(const QJsonObject &package, const QStringList &codeIds, const CheckTools &tools);

/// A plan's own node that runs the project's script "build" or "test" checks the code, whether the plan says so or not:
/// its failure is one to repair. Of the program "node" and the tools of `tools`.
void markOwnChecks(QList<Node> &nodes, const CheckTools &tools);

/// One for each script file, in the order of the nodes; for projects without a build.
QList<ProjectCheck> syntaxChecks(const QList<Node> &nodes);

/// Stands for a program where the application reads files itself: data_syntax.h.
inline const QString ownParser = QStringLiteral("syntax");

/// Whether an argument is the text of a program of sharedSyntaxChecks().
bool isSyntaxProgram(const QString &argument);

/// Programs that look at the syntax of files without running them; empty for what must not or cannot be asked.
struct SyntaxTools {
    QString python;
    QString bash;
};

/// One for all Python files, one for all shell scripts, one for all XML and SVG. Nothing is run, nothing written.
QList<ProjectCheck> sharedSyntaxChecks(const QList<Node> &nodes,
                                       const std::function<QString(const QString &path)> &textOf,
                                       const SyntaxTools &tools);

/// What is known of the files of a project.
struct ProjectFiles {
    std::function<QString(const QString &path)> textOf;
    std::function<bool(const QString &path)> isBuilt; ///< A build of this run has made it.
};

/// What to open in a browser.
struct PageChecks {
    QStringList pages; ///< Paths in the project, the start page first.
    QString limitation; ///< Which pages are left out; empty when none.
};

/// All pages that the nodes write, eight and `room` of them at most: "index.html", or else the first ".html", and the
/// others that are whole documents. Where a build has made the start page of "dist", "build" or "out", what it has made
/// stands for the pages that it was made from. Templates that a server has yet to fill in are no pages.
PageChecks pagesToCheck(const QList<Node> &nodes, const ProjectFiles &files, qsizetype room);

/// What a check in a browser says (docs/browser-check.md) apart from faults of the page.
struct BrowserVerdict {
    bool opened = true; ///< False when the page could not be opened, for a reason that is none of its own.
    QString limitation; ///< What was not checked, and why; empty when all was, or when the page has faults.
};

/// What a passed check in a browser notes about controls that do nothing ("кнопка «Сброс» ничего не изменила").
QStringList deadControls(const QJsonObject &result);

/// Of the result of the program that has opened the page.
BrowserVerdict browserVerdict(const QString &page, const QJsonObject &result);

} // namespace vesk
