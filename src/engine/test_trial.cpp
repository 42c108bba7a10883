// Which tests are tried with empty files, and what a copy for that holds.

#include "test_trial.h"

#include "evidence_text.h"
#include "helpers.h"
#include "node_kind.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QRegularExpression>
#include <QSet>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype maxTrials = 3;
constexpr qsizetype maxBuilds = 6;
constexpr int defaultTimeoutMs = 30000;
constexpr int startMs = 5000; ///< A run may take so much longer, and three times as long, than the first.

QStringList argumentsOf(const QJsonObject &command)
{
    return strings(command["arguments"_L1].toArray());
}

/// The words of a command, with those of the script behind it.
QStringList allWords(const QJsonObject &command, const QJsonObject &package)
{
    const QString program = command["program"_L1].toString();
    const QStringList arguments = argumentsOf(command);
    return commandWords(program, arguments)
        + commandWords(u"sh"_s, {u"-c"_s, packageScript(program, arguments, package)});
}

bool isRunner(const QStringList &words, qsizetype at)
{
    static const QSet<QString> tools{u"cargo"_s, u"go"_s, u"dotnet"_s, u"mvn"_s, u"gradle"_s};
    return testRunners().contains(words.at(at))
        || (words.at(at) == "test"_L1 && at > 0 && tools.contains(words.at(at - 1)));
}

/// Scripts of a shell can do anything with files that they do not name.
bool isShellScript(const QString &word)
{
    static const QStringList suffixes{u".sh"_s, u".bash"_s, u".bat"_s, u".ps1"_s};
    return std::ranges::any_of(suffixes, [&](const QString &suffix) { return word.endsWith(suffix); });
}

bool runsTests(const QStringList &words)
{
    bool runs = false;
    for (qsizetype at = 0; at < words.size(); ++at) {
        if (isShellScript(words.at(at)))
            return false;
        runs = runs || isRunner(words, at) || (isSource(words.at(at)) && isTestPath(words.at(at)));
    }
    return runs;
}

bool reachesOut(const QJsonObject &command, const QString &root)
{
    static const QRegularExpression gap(u"[\\s='\"();:]+"_s);
    const QStringList parts = argumentsOf(command).join(u' ').split(gap, Qt::SkipEmptyParts);
    return std::ranges::any_of(parts, [&](const QString &part) {
        return part.startsWith("~"_L1)
            || (QDir::isAbsolutePath(part) && part != root && !part.startsWith(root + u'/') && QFileInfo(part).isDir());
    });
}

/// A build leaves what it makes in the project; an installation or publication does not.
bool isBuild(const Node &node)
{
    static const QStringList spreading{u"install"_s, u"publish"_s, u"deploy"_s, u"push"_s, u"upload"_s};
    const QString program = node.input["program"_L1].toString();
    const QStringList arguments = argumentsOf(node.input);
    const QStringList line = commandWords(program, arguments);
    return node.kind == "tool"_L1 && node.output["success"_L1].toBool() && node.input["builtin"_L1] != true
        && kindOfCheck(program, arguments) == CheckKind::Build
        && std::ranges::none_of(spreading, [&](const QString &word) { return line.contains(word); });
}

QString startOf(const Node &node)
{
    return node.output["started_at"_L1].toString();
}

QList<QJsonObject> buildsBefore(const QList<Node> &nodes, const Node &test)
{
    QList<const Node *> builds;
    for (const Node &node : nodes) {
        if (isBuild(node) && startOf(node) < startOf(test))
            builds.append(&node);
    }
    std::ranges::sort(builds, {}, [](const Node *node) { return startOf(*node); });
    QList<QJsonObject> commands;
    for (const Node *node : builds.first(std::min(builds.size(), maxBuilds)))
        commands.append(node->input);
    return commands;
}

bool isConfiguration(const QString &path)
{
    static const QSet<QString> suffixes{u"toml"_s, u"ini"_s,   u"cfg"_s,   u"conf"_s,   u"yml"_s,    u"yaml"_s,
                                        u"lock"_s, u"cmake"_s, u"mk"_s,    u"gradle"_s, u"csproj"_s, u"sln"_s,
                                        u"mod"_s,  u"props"_s, u"rc"_s,    u"in"_s,     u"xml"_s,    u"properties"_s,
                                        u"sum"_s,  u"jsonc"_s, u"json5"_s, u"env"_s};
    static const QRegularExpression names(
        u"(?:^|/)(?:\\.[^/]*|package(?:-lock)?\\.json|composer\\.json|deno\\.json|[jt]sconfig[^/]*\\.json|"
        u"requirements[^/]*\\.txt|CMakeLists\\.txt|[Mm]akefile|Dockerfile|Gemfile|Rakefile|Procfile|setup\\.py|"
        u"conftest\\.py|[^/]*\\.config\\.[^/.]+|[^/]*\\.setup\\.[^/.]+)\\z"_s);
    return suffixes.contains(suffixOf(path)) || names.match(path).hasMatch();
}

/// Also what is not named like a test and holds some.
bool holdsTests(const QString &text)
{
    static const QRegularExpression marks(
        u"\\bassert|\\bexpect\\(|\\b(?:describe|it|test)\\(\\s*['\"`]|\\bdef test_|\\bunittest\\b|>>> |#\\[(?:cfg\\()?test|"
        u"@Test\\b|\\[(?:Fact|Test|TestMethod|Theory)\\]|\\bTEST(?:_\\w+)?\\(|\\bfunc Test|RSpec\\.|import\\.meta\\.vitest"_s);
    return marks.match(text).hasMatch();
}

QString withCopy(const QString &text, const QString &root, const QString &copy)
{
    const QRegularExpression folder(u"(?<![\\w.-])"_s + QRegularExpression::escape(root) + u"(?![\\w.-])"_s,
                                    QRegularExpression::UseUnicodePropertiesOption);
    return QString(text).replace(folder, QString(copy).replace(u'\\', u"\\\\"_s));
}

} // namespace

QList<Trial> trialsOf(const QList<Node> &nodes, const QJsonObject &package, const QString &root)
{
    QList<Trial> trials;
    for (const Node &node : nodes) {
        if (trials.size() == maxTrials)
            break;
        const QString program = node.input["program"_L1].toString();
        if (!isCheck(node) || !node.output["success"_L1].toBool() || node.output.contains("limitation"_L1)
            || kindOfCheck(program, argumentsOf(node.input)) != CheckKind::Test
            || !emptyProof(program, argumentsOf(node.input), package).isEmpty())
            continue;
        const QStringList words = allWords(node.input, package);
        const QList<QJsonObject> commands = buildsBefore(nodes, node) << node.input;
        if (runsTests(words)
            && std::ranges::none_of(commands, [&](const QJsonObject &one) { return reachesOut(one, root); }))
            trials.append({node.id, commands, words});
    }
    return trials;
}

bool isSource(const QString &path)
{
    static const QSet<QString> suffixes{
        u"py"_s, u"js"_s,  u"mjs"_s, u"cjs"_s, u"ts"_s,  u"mts"_s,  u"tsx"_s,   u"jsx"_s,  u"vue"_s, u"svelte"_s,
        u"sh"_s, u"c"_s,   u"h"_s,   u"cc"_s,  u"cpp"_s, u"hpp"_s,  u"cxx"_s,   u"go"_s,   u"rs"_s,  u"java"_s,
        u"cs"_s, u"php"_s, u"rb"_s,  u"kt"_s,  u"lua"_s, u"dart"_s, u"swift"_s, u"html"_s, u"css"_s, u"sql"_s};
    return suffixes.contains(suffixOf(path));
}

TrialFile fileInTrial(const QString &path, const QString &text, const QStringList &named)
{
    static const QRegularExpression checks(u"(?:^|[/_.-])(?:checks?|verify|fixtures?|testdata|e2e|smoke)[/_.-]"_s,
                                           QRegularExpression::CaseInsensitiveOption);
    if (isTestPath(path) || isConfiguration(path) || path.contains(checks)
        || named.contains(path.section(u'/', -1).toLower()))
        return TrialFile::Kept;
    return isSource(path) && holdsTests(text) ? TrialFile::Mixed : TrialFile::Emptied;
}

QJsonObject movedCommand(const QJsonObject &command, qint64 tookMs, const QString &root, const QString &copy)
{
    QStringList arguments = argumentsOf(command);
    for (QString &argument : arguments)
        argument = withCopy(argument, root, copy);
    const qint64 limit = command["timeout_ms"_L1].toInteger(defaultTimeoutMs);
    return {
        {u"program"_s, withCopy(command["program"_L1].toString(), root, copy)},
        {u"arguments"_s, QJsonArray::fromStringList(arguments)},
        {u"timeout_ms"_s, std::min(limit, startMs + 3 * tookMs)},
        {u"folder"_s, copy},
    };
}

} // namespace vesk
