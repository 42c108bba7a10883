// What the words of a criterion, a command or a file give away.

#include "evidence_text.h"

#include "project_checks.h"

#include <QFileInfo>
#include <QRegularExpression>
#include <QSet>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype maxSentence = 20000;
constexpr qsizetype stemChars = 5;
constexpr qsizetype maxHollowChars = 200000; ///< A longer file is not empty.

QRegularExpression unicode(const QString &pattern)
{
    return QRegularExpression(
        pattern, QRegularExpression::UseUnicodePropertiesOption | QRegularExpression::CaseInsensitiveOption);
}

/// Suffixes of files that a task may be about; "com" or "js" alone would take every address and framework for one.
const QSet<QString> &knownSuffixes()
{
    static const QSet<QString> suffixes{
        u"html"_s, u"htm"_s,  u"css"_s,  u"js"_s,   u"mjs"_s,  u"cjs"_s,   u"ts"_s,   u"tsx"_s, u"jsx"_s,  u"vue"_s,
        u"json"_s, u"md"_s,   u"txt"_s,  u"py"_s,   u"c"_s,    u"h"_s,     u"cpp"_s,  u"hpp"_s, u"cc"_s,   u"cs"_s,
        u"java"_s, u"kt"_s,   u"go"_s,   u"rs"_s,   u"rb"_s,   u"php"_s,   u"sh"_s,   u"bat"_s, u"ps1"_s,  u"sql"_s,
        u"xml"_s,  u"svg"_s,  u"png"_s,  u"jpg"_s,  u"jpeg"_s, u"gif"_s,   u"webp"_s, u"ico"_s, u"pdf"_s,  u"zip"_s,
        u"csv"_s,  u"xlsx"_s, u"docx"_s, u"pptx"_s, u"mp3"_s,  u"wav"_s,   u"mp4"_s,  u"exe"_s, u"yml"_s,  u"yaml"_s,
        u"toml"_s, u"ini"_s,  u"cfg"_s,  u"lua"_s,  u"luau"_s, u"swift"_s, u"dart"_s, u"obj"_s, u"gltf"_s, u"glb"_s,
    };
    return suffixes;
}

/// Frameworks and runtimes that are written like a script.
bool isProduct(const QString &name)
{
    static const QSet<QString> products{
        u"node"_s,   u"vue"_s,  u"react"_s,    u"next"_s,   u"nuxt"_s,   u"express"_s, u"three"_s,    u"chart"_s,
        u"d3"_s,     u"p5"_s,   u"jquery"_s,   u"moment"_s, u"alpine"_s, u"ember"_s,   u"backbone"_s, u"socket"_s,
        u"phaser"_s, u"pixi"_s, u"electron"_s, u"nest"_s,   u"matter"_s, u"babylon"_s, u"anime"_s,    u"asp"_s};
    return name.endsWith(".js"_L1, Qt::CaseInsensitive) && !name.contains(u'/')
        && (name.front().isUpper() || products.contains(name.chopped(3).toLower()));
}

const QString &programNames()
{
    static const QString names
        = u"npm|npx|node|python3?|pytest|pip3?|cmake|ctest|cargo|gcc|g\\+\\+|clang|javac|java|mvn|"
          u"gradle|dotnet|php|ruby|bash|sh|make|go"_s;
    return names;
}

QString programName(const QString &program)
{
    QString name = program.section(u'/', -1).toLower();
    if (name.endsWith(".exe"_L1))
        name.chop(4);
    if (name == "npm-cli.js"_L1)
        return u"npm"_s;
    static const QRegularExpression version(u"\\A(python|pip|node|gcc|clang|php|ruby)[\\d.]+\\z"_s);
    const auto match = version.match(name);
    return match.hasMatch() ? match.captured(1) : name;
}

QStringList words(const QString &line)
{
    static const QRegularExpression blank(u"[\\s;&|()<>\"']+"_s);
    QStringList list;
    const QStringList parts = line.split(blank, Qt::SkipEmptyParts);
    for (const QString &part : parts)
        list.append(part.startsWith(u'-') ? part : programName(part));
    return list;
}

bool isShell(const QString &program)
{
    const QString name = programName(program);
    return name == "sh"_L1 || name == "bash"_L1 || name == "dash"_L1 || name == "zsh"_L1;
}

/// The text that a shell is given to run; empty for other commands.
QString scriptOf(const QString &program, const QStringList &arguments)
{
    const qsizetype at = std::ranges::find_if(arguments,
                                              [](const QString &argument) {
                                                  return argument.startsWith(u'-') && !argument.startsWith("--"_L1)
                                                      && argument.endsWith(u'c');
                                              })
        - arguments.begin();
    return isShell(program) ? arguments.value(at + 1) : QString();
}

QString emptyScript(const QString &script)
{
    static const QRegularExpression always(u"\\A\\s*(true|:|exit(\\s+0)?|echo\\b[^&|;]*)\\s*\\z"_s);
    static const QRegularExpression forgiven(u"\\|\\|\\s*(true|:|exit\\s+0|echo\\b[^&|;]*|exit)\\s*\\z"_s);
    static const QRegularExpression ended(u"[;\\n]\\s*(exit\\s+0|true|:)\\s*\\z"_s);
    static const QRegularExpression piped(u"[^|]\\|\\s*(cat|tee|head|tail)\\b[^|&;]*\\z"_s);
    const QString text = script.trimmed();
    if (text.isEmpty())
        return {};
    if (always.match(text).hasMatch())
        return u"команда ничего не проверяет"_s;
    if (forgiven.match(text).hasMatch() || ended.match(text).hasMatch())
        return u"команда успешна при любом исходе"_s;
    if (piped.match(text).hasMatch() && !text.contains("pipefail"_L1))
        return u"код завершения теряется в конвейере"_s;
    return {};
}

/// False for kinds of files whose comments are not known.
bool isOnlyComments(const QString &suffix, const QString &text)
{
    static const QSet<QString> slashed{u"js"_s, u"mjs"_s, u"cjs"_s, u"ts"_s,  u"tsx"_s,   u"jsx"_s,  u"c"_s,
                                       u"h"_s,  u"cpp"_s, u"hpp"_s, u"cc"_s,  u"cs"_s,    u"java"_s, u"kt"_s,
                                       u"go"_s, u"rs"_s,  u"php"_s, u"css"_s, u"swift"_s, u"dart"_s};
    static const QSet<QString> hashed{u"py"_s, u"sh"_s, u"rb"_s, u"yml"_s, u"yaml"_s, u"toml"_s};
    static const QSet<QString> marked{u"html"_s, u"htm"_s, u"xml"_s, u"svg"_s, u"md"_s};
    static const QRegularExpression slashes(u"\\A(?:\\s+|//[^\\n]*|/\\*.*?\\*/)*+\\z"_s,
                                            QRegularExpression::DotMatchesEverythingOption);
    static const QRegularExpression hashes(u"\\A(?:\\s+|#[^\\n]*)*+\\z"_s);
    static const QRegularExpression marks(u"\\A(?:\\s+|<!--.*?-->|<!doctype[^>]*>)*+\\z"_s,
                                          QRegularExpression::DotMatchesEverythingOption
                                              | QRegularExpression::CaseInsensitiveOption);
    if (slashed.contains(suffix))
        return slashes.match(text).hasMatch();
    if (hashed.contains(suffix))
        return hashes.match(text).hasMatch();
    return marked.contains(suffix) && marks.match(text).hasMatch();
}

/// A function whose whole body is a comment that puts it off, or an error that says so.
QString emptyFunction(const QString &text)
{
    static const QString later
        = u"(?:TODO|FIXME|не реализован|not implemented|реализ\\w+ (?:позже|потом)|will be implemented|"
          u"заглушка|здесь будет|placeholder)"_s;
    static const QRegularExpression braces = unicode(
        u"(\\w+)\\s*(?:=\\s*)?\\([^(){}]*\\)\\s*(?:=>)?\\s*\\{\\s*(?://[^\\n]*"_s + later + u"[^\\n]*|/\\*[^*]*"_s
        + later + u"[^*]*\\*/|throw new \\w*Error\\([^)]*"_s + later + u"[^)]*\\);?)\\s*\\}"_s);
    static const QRegularExpression python = unicode(
        u"def (\\w+)\\([^)]*\\)[^:\\n]*:\\s*\\n\\s*(?:#[^\\n]*"_s + later
        + u"[^\\n]*\\n\\s*(?:pass|\\.\\.\\.)|raise NotImplementedError)[^\\n]*(?:\\n\\s*\\n|\\n\\S|\\s*\\z)"_s);
    // The shapes are dear, and most files hold none of these words.
    static const QRegularExpression hint(u"TODO|FIXME|реализ|mplement|аглушка|десь будет|laceholder"_s);
    if (!hint.match(text).hasMatch())
        return {};
    for (const QRegularExpression &shape : {braces, python}) {
        const auto match = shape.match(text);
        if (match.hasMatch())
            return match.captured(1);
    }
    return {};
}

bool isUsual(const QString &word)
{
    static const QStringList usual{u"созда"_s,  u"сдела"_s, u"напиш"_s, u"разра"_s, u"проек"_s, u"прост"_s, u"нужно"_s,
                                   u"чтобы"_s,  u"файл"_s,  u"испол"_s, u"должн"_s, u"котор"_s, u"добав"_s, u"пожал"_s,
                                   u"create"_s, u"make"_s,  u"write"_s, u"simpl"_s, u"proje"_s, u"pleas"_s, u"with"_s};
    return std::ranges::any_of(usual, [&](const QString &stem) { return word.startsWith(stem); });
}

QSet<QString> stems(const QString &text)
{
    static const QRegularExpression word = unicode(u"[\\w]{3,}"_s);
    static const QSet<QString> joining{u"для"_s, u"что"_s, u"как"_s, u"без"_s, u"при"_s, u"или"_s, u"это"_s, u"мне"_s,
                                       u"the"_s, u"and"_s, u"for"_s, u"all"_s, u"все"_s, u"его"_s, u"был"_s, u"чем"_s};
    QSet<QString> found;
    for (auto it = word.globalMatch(text.left(maxSentence)); it.hasNext();) {
        const QString one = it.next().captured().toLower();
        if (!isUsual(one) && !joining.contains(one))
            found.insert(one.left(stemChars));
    }
    return found;
}

bool isRussian(const QString &text)
{
    return std::ranges::any_of(text, [](QChar c) { return c.script() == QChar::Script_Cyrillic; });
}

} // namespace

bool isUnwanted(const QString &sentence, const QString &path)
{
    static const QRegularExpression no = unicode(
        u"(?:\\bбез|\\bне\\s+\\w+|удал\\w+|убер\\w+|убра\\w+|переименова\\w+|вместо|замени\\w*|\\bremove|\\bdelete|\\bwithout)"
        u"(?:\\s+\\w+){0,2}\\s+[`«\"']?\\z"_s);
    for (qsizetype at = sentence.indexOf(path); at >= 0; at = sentence.indexOf(path, at + 1)) {
        if (no.match(sentence.left(at).right(80)).hasMatch())
            return true;
    }
    return false;
}

bool isWrittenInUse(const QString &path)
{
    static const QSet<QString> kinds{u"csv"_s, u"json"_s, u"txt"_s,  u"xml"_s, u"md"_s,  u"pdf"_s,
                                     u"png"_s, u"jpg"_s,  u"xlsx"_s, u"wav"_s, u"mp3"_s, u"mp4"_s,
                                     u"zip"_s, u"html"_s, u"svg"_s,  u"ini"_s, u"docx"_s};
    return kinds.contains(suffixOf(path));
}

bool isComplaint(const QString &observation)
{
    static const QRegularExpression sentence(u"[.!?;\\n]+"_s);
    static const QRegularExpression complaint = unicode(
        u"не (?:выполнен|запу[щс]|провер|создан|работа|соотв|сделан|подтвержд|реализ)|отсутств|провал|пропущен|неверн|подозр"_s);
    static const QRegularExpression relief = unicode(
        u"(?:ошиб\\w+|замечани\\w+|проблем\\w*|нарушени\\w+|недостат\\w+|дефект\\w*|риск\\w*|сбо\\w+)\\s+отсутств\\w+|"
        u"отсутств\\w+\\s+(?:\\w+\\s+)?(?:ошиб|замечани|проблем|нарушени|недостат|дефект|риск|сбо)\\w*|"
        u"\\b(?:нет|без|ничего|ни одно\\w+)\\s+(?:\\w+\\s+)?(?:провал|пропущен|неверн|подозр)\\w*|"
        u"(?:провал|пропущен|неверн|подозр)\\w*(?:\\s+\\w+)?\\s+(?:нет|не (?:обнаруж|выяв|найден)\\w*)"_s);
    const QStringList sentences = observation.split(sentence);
    return std::ranges::any_of(sentences, [](QString said) { return said.remove(relief).contains(complaint); });
}

QStringList namedFiles(const QString &sentence)
{
    static const QRegularExpression name
        = unicode(u"(?<![\\w/.@:-])(?:\\./)?((?:[\\w.-]+/)*[\\w][\\w.-]*\\.([a-z][a-z0-9]{0,5}))(?![\\w/]|\\.\\w)"_s);
    QStringList found;
    for (auto it = name.globalMatch(sentence.left(maxSentence)); it.hasNext();) {
        const auto match = it.next();
        const QString path = match.captured(1);
        if (knownSuffixes().contains(match.captured(2).toLower()) && !isProduct(path) && !found.contains(path))
            found.append(path);
    }
    return found;
}

QList<QStringList> namedCommands(const QString &sentence)
{
    static const QRegularExpression quoted
        = unicode(u"[`«\"]((?:\\./[\\w./-]+|(?:"_s + programNames() + u")\\b)[^`»\"\\n]{0,200})[`»\"]"_s);
    // Without quotes a program needs arguments that cannot be words of a sentence, and "make" and "go" are words.
    static const QRegularExpression bare(
        u"(?<![\\w`«\"./-])((?:npm (?:run [\\w:-]+|test|start|ci|install)|npx [\\w@/.-]+|pytest(?: [\\w./-]+)*|ctest\\b|"_s
        u"(?:node|python3?|php|ruby|bash|sh|gcc|java) (?:-[\\w-]+ )*[\\w./-]+(?:\\.[a-z0-9]+| [\\w./-]+)?|"_s
        u"cargo \\w+|dotnet \\w+|cmake -[-\\w]+))(?![\\w`»\"-])"_s);
    QList<QStringList> found;
    for (const QRegularExpression &shape : {quoted, bare}) {
        for (auto it = shape.globalMatch(sentence.left(maxSentence)); it.hasNext();) {
            QString text = it.next().captured(1).trimmed();
            while (text.endsWith(u'.') || text.endsWith(u','))
                text.chop(1);
            const QStringList command = words(text);
            if (!command.isEmpty() && !found.contains(command))
                found.append(command);
        }
    }
    return found;
}

QStringList commandWords(const QString &program, const QStringList &arguments)
{
    QStringList line{programName(program)};
    const QString script = scriptOf(program, arguments);
    if (!script.isEmpty())
        line += words(script);
    // Of a shell's line what stands behind the text: its parameters.
    for (const QString &argument : script.isEmpty() ? arguments : arguments.sliced(arguments.indexOf(script) + 1))
        line.append(argument.startsWith(u'-') ? argument : programName(argument));
    return line;
}

QString packageScript(const QString &program, const QStringList &arguments, const QJsonObject &package)
{
    QStringList line = commandWords(program, arguments);
    const qsizetype at = line.indexOf(u"npm"_s);
    if (at < 0 || at > 1)
        return {};
    line = line.sliced(at + 1);
    const QString verb = line.value(0);
    const QString name = verb == "run"_L1 || verb == "run-script"_L1 ? line.value(1)
        : verb == "t"_L1                                             ? u"test"_s
                                                                     : verb;
    return package["scripts"_L1][name].toString();
}

bool isWithin(const QStringList &words, const QStringList &others)
{
    // "npm run test" and "npm test" are one command.
    QStringList wanted = words;
    if (wanted.value(0) == "npm"_L1 && wanted.value(1) == "run"_L1)
        wanted.removeAt(1);
    qsizetype next = 0;
    for (const QString &other : others) {
        if (next < wanted.size() && other == wanted.at(next))
            ++next;
    }
    return next == wanted.size();
}

QString emptyProof(const QString &program, const QStringList &arguments, const QJsonObject &package)
{
    const QString name = programName(program);
    if (name == "true"_L1 || name == "echo"_L1)
        return u"команда ничего не проверяет"_s;
    const QString script = scriptOf(program, arguments);
    if (script.isEmpty() && (arguments.contains(u"--version"_s) || arguments.contains(u"--help"_s)))
        return u"команда ничего не проверяет"_s;
    return emptyScript(script.isEmpty() ? packageScript(program, arguments, package) : script);
}

QString hollowness(const QString &path, const QString &text)
{
    if (text.size() > maxHollowChars)
        return {};
    if (text.trimmed().isEmpty())
        return u"пустой файл"_s;
    if (isOnlyComments(suffixOf(path), text))
        return u"только комментарии"_s;
    static const QRegularExpression promise = unicode(
        u"\\A\\W*(?:(?:TODO|FIXME|TBD)(?![-\\w])(?:\\s*:|[^\\n]*\\z)|заглушка|placeholder|здесь будет|будет (?:добавлен|написан|реализован)|coming soon)"_s);
    if (text.size() < 400 && promise.match(text).hasMatch())
        return u"только обещание текста"_s;
    const QString function = emptyFunction(text);
    return function.isEmpty() ? QString() : u"функция без тела: "_s + function;
}

QString disguise(const QString &path, const QString &text)
{
    static const QHash<QString, QString> kinds{
        {u"png"_s, u"изображения"_s},  {u"jpg"_s, u"изображения"_s},  {u"jpeg"_s, u"изображения"_s},
        {u"gif"_s, u"изображения"_s},  {u"webp"_s, u"изображения"_s}, {u"ico"_s, u"изображения"_s},
        {u"pdf"_s, u"документа"_s},    {u"docx"_s, u"документа"_s},   {u"xlsx"_s, u"таблицы"_s},
        {u"pptx"_s, u"презентации"_s}, {u"zip"_s, u"архива"_s},       {u"mp3"_s, u"звука"_s},
        {u"wav"_s, u"звука"_s},        {u"mp4"_s, u"видео"_s},        {u"exe"_s, u"программы"_s},
        {u"glb"_s, u"модели"_s},
    };
    const QString kind = kinds.value(suffixOf(path));
    const bool isPdf = suffixOf(path) == "pdf"_L1 && text.startsWith("%PDF-"_L1);
    return kind.isEmpty() || isPdf ? QString() : u"текст вместо "_s + kind;
}

bool shareWords(const QString &one, const QString &other)
{
    const QSet<QString> wanted = stems(one);
    // The same in another language has no word in common.
    if (isRussian(one) != isRussian(other))
        return true;
    return wanted.isEmpty() || wanted.intersects(stems(other));
}

QString suffixOf(const QString &path)
{
    return QFileInfo(path).suffix().toLower();
}

bool isTestPath(const QString &path)
{
    static const QRegularExpression test = unicode(
        u"(?:^|/)(?:tests?|specs?|__tests__)/|(?:^|[/_.-])(?:test|spec)s?[_.-]|[_.-](?:test|spec)s?\\.\\w+$"_s);
    return test.match(path).hasMatch();
}

const QStringList &testRunners()
{
    static const QStringList runners{u"pytest"_s, u"unittest"_s, u"ctest"_s,  u"jest"_s,    u"vitest"_s,
                                     u"mocha"_s,  u"ava"_s,      u"--test"_s, u"phpunit"_s, u"rspec"_s};
    return runners;
}

const QStringList &syntaxOptions()
{
    static const QStringList options{u"--check"_s, u"py_compile"_s, u"-fsyntax-only"_s};
    return options;
}

CheckKind kindOfCheck(const QString &program, const QStringList &arguments)
{
    const QStringList line = commandWords(program, arguments);
    const auto has = [&](const QStringList &any) {
        return std::ranges::any_of(any, [&](const QString &word) { return line.contains(word); });
    };
    if (has({u"browser-check.mjs"_s}))
        return CheckKind::Page;
    if (program == ownParser || std::ranges::any_of(arguments, isSyntaxProgram) || has(syntaxOptions())
        || (isShell(program) && line.value(1) == "-n"_L1))
        return CheckKind::Syntax;
    if (line.contains("test"_L1) || has(testRunners()) || std::ranges::any_of(line, isTestPath))
        return CheckKind::Test;
    const bool builds = has({u"build"_s, u"make"_s, u"cmake"_s, u"ninja"_s, u"gcc"_s, u"cc"_s, u"g++"_s, u"clang"_s,
                             u"tsc"_s, u"javac"_s, u"webpack"_s, u"vite"_s});
    return builds ? CheckKind::Build : CheckKind::Other;
}

bool answersKind(const QString &criterion, CheckKind kind)
{
    static const QRegularExpression page = unicode(
        u"(?:страниц|сайт|\\.html).*(?:откры|загру|ошиб|консол)|(?:откры|загру|ошиб|консол).*(?:страниц|сайт|браузер|\\.html)"_s);
    static const QRegularExpression build = unicode(u"сборк|собира|компилир|\\bbuild\\b"_s);
    static const QRegularExpression test = unicode(u"\\bтест(?!ов\\w+ данн)|\\btests?\\b"_s);
    switch (kind) {
    case CheckKind::Page:
        return page.match(criterion).hasMatch();
    case CheckKind::Build:
        return build.match(criterion).hasMatch();
    case CheckKind::Test:
        return test.match(criterion).hasMatch();
    case CheckKind::Syntax:
    case CheckKind::Other:
        return false;
    }
    return false;
}

} // namespace vesk
