// Which files go back to the coder when a check fails or the whole is rejected, and which checks have to be run again.

#include "rework.h"

#include "evidence_text.h"
#include "helpers.h"
#include "node_kind.h"
#include "statuses.h"

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype maxCheckOutput = 16000;

void order(Node &node, const QJsonObject &fix)
{
    if (node.status == NodeStatus::completed) {
        node.status = NodeStatus::queued;
        node.input["recovery_fixes"_L1] = QJsonArray{fix};
    } else if (node.status == NodeStatus::queued) {
        // Another check has failed over the same file and its repair has not begun: it gets both reports.
        QJsonArray fixes = node.input["recovery_fixes"_L1].toArray();
        fixes.append(fix);
        node.input["recovery_fixes"_L1] = fixes;
    }
    // Else it is being rewritten right now. Queued again it would be written twice at a time, and the review of the
    // first version would end the run; the check runs again after the rewrite.
}

/// Of the packages that package.json names.
bool isInstallation(const Node &node)
{
    const QStringList words = strings(node.input["arguments"_L1].toArray()) << node.input["program"_L1].toString();
    const bool isNpm = std::ranges::any_of(
        words, [](const QString &word) { return word.endsWith("npm-cli.js"_L1) || word.endsWith("/npm"_L1); });
    return isNpm && (words.contains(u"install"_s) || words.contains(u"ci"_s));
}

/// Only the syntax of a file can be judged without the others: a test that a command names tests them.
bool looksAtOneFile(const Node &check)
{
    const QStringList arguments = strings(check.input["arguments"_L1].toArray());
    return std::ranges::any_of(syntaxOptions(), [&](const QString &option) { return arguments.contains(option); });
}

/// It names the files that are wrong: the others of its files are not written anew.
bool isSyntaxCheck(const Node &check)
{
    const QString program = check.input["program"_L1].toString();
    return kindOfCheck(program, strings(check.input["arguments"_L1].toArray())) == CheckKind::Syntax;
}

} // namespace

int reworkTarget(const QList<Node> &nodes, const QJsonObject &review)
{
    const QString text = json(review);
    int first = -1;
    for (int i = 0; i < nodes.size(); ++i) {
        if (!isCode(nodes.at(i)))
            continue;
        if (text.contains(pathOf(nodes.at(i))))
            return i;
        if (first < 0)
            first = i;
    }
    return first;
}

QJsonObject recoveryFix(const QJsonObject &command, const QJsonObject &result)
{
    return {
        {u"issues"_s, QJsonArray{u"Реальная проверка завершилась ошибкой"_s}},
        {u"command"_s, command},
        {u"stdout"_s, result["stdout"_L1].toString().right(maxCheckOutput)},
        {u"stderr"_s, result["stderr"_L1].toString().right(maxCheckOutput)},
        {u"error"_s, result["error"_L1]},
        {u"required_changes"_s,
         QJsonArray{u"Исправь причину ошибки в своём файле. Не отключай тесты и не скрывай ошибки."_s}},
    };
}

bool sendBack(QList<Node> &nodes, int check, const QJsonObject &fix,
              const std::function<bool(const Node &code)> &concerns)
{
    const QSet<QString> upstream = upstreamOf(linksOf(nodes), nodes.at(check).id);
    const QString said = fix["stdout"_L1].toString() + fix["stderr"_L1].toString();
    const auto isNamed
        = [&](const Node &node) { return isCode(node) && upstream.contains(node.id) && said.contains(pathOf(node)); };
    const bool onlyNamed = isSyntaxCheck(nodes.at(check)) && std::ranges::any_of(nodes, isNamed);
    bool found = false;
    for (Node &node : nodes) {
        if (!isCode(node) || !upstream.contains(node.id) || (onlyNamed && !isNamed(node))
            || (concerns && !concerns(node)))
            continue;
        found = true;
        order(node, fix);
    }
    return found;
}

QHash<QString, int> testedRevisions(const QList<Node> &nodes, int check)
{
    const QSet<QString> upstream = upstreamOf(linksOf(nodes), nodes.at(check).id);
    QHash<QString, int> revisions;
    for (const Node &node : nodes) {
        if (isCode(node) && upstream.contains(node.id))
            revisions.insert(node.id, node.revision);
    }
    return revisions;
}

bool isBeingRewritten(const QList<Node> &nodes, int check)
{
    const QSet<QString> upstream = upstreamOf(linksOf(nodes), nodes.at(check).id);
    return std::ranges::any_of(nodes, [&](const Node &node) {
        return isCode(node) && upstream.contains(node.id) && node.status != NodeStatus::completed
            && !isStartable(node.status);
    });
}

QList<int> stepsToRepeat(const QList<Node> &nodes, const QString &codeId)
{
    const Links links = linksOf(nodes);
    QSet<QString> neededByChecks;
    QString path;
    for (const Node &node : nodes) {
        if (isCheck(node))
            neededByChecks += upstreamOf(links, node.id);
        if (node.id == codeId)
            path = pathOf(node);
    }
    QList<int> steps;
    for (int i = 0; i < nodes.size(); ++i) {
        const Node &node = nodes.at(i);
        const bool isStep = node.kind == "tool"_L1 && !isCheck(node) && node.status == NodeStatus::completed;
        if (isStep && neededByChecks.contains(node.id) && upstreamOf(links, node.id).contains(codeId)
            && (!isInstallation(node) || path == "package.json"_L1))
            steps.append(i);
    }
    return steps;
}

void tieLooseChecks(QList<Node> &nodes)
{
    for (qsizetype i = 0; i < nodes.size(); ++i) {
        if (!isCheck(nodes.at(i)) || !nodes.at(i).dependencies.isEmpty())
            continue;
        const QString command = json(nodes.at(i).input);
        const Links links = linksOf(nodes);
        QStringList all;
        QStringList named;
        for (const Node &node : std::as_const(nodes)) {
            if (!isCode(node) || upstreamOf(links, node.id).contains(nodes.at(i).id))
                continue;
            all.append(node.id);
            if (!pathOf(node).isEmpty() && command.contains(pathOf(node)))
                named.append(node.id);
        }
        nodes[i].dependencies = looksAtOneFile(nodes.at(i)) && !named.isEmpty() ? named : all;
    }
}

void rearmChecksOf(QList<Node> &nodes, const QString &codeId)
{
    const Links links = linksOf(nodes);
    for (Node &node : nodes) {
        if (isCheck(node) && node.status == NodeStatus::completed && upstreamOf(links, node.id).contains(codeId))
            rearm(node);
    }
}

} // namespace vesk
