// What a run asks the person before the terminal.

#include "console.h"
#include "diff_mode.h"
#include "helpers.h"
#include "run_mode.h"

#include <QSocketNotifier>

#include <algorithm>
#include <optional>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype maxShownEdits = 20;
constexpr qsizetype maxShownDifference = 20000;

QString editQuestion(const QList<HandEdit> &edits)
{
    QStringList lines{u"Файлы изменены вне программы:"_s};
    for (const HandEdit &edit : edits.first(std::min(edits.size(), maxShownEdits)))
        lines.append(u"  "_s + visibleText(edit.text()));
    if (edits.size() > maxShownEdits)
        lines.append(u"  и ещё %1"_s.arg(edits.size() - maxShownEdits));
    lines << u"Чью версию оставить? Другая останется в истории файла."_s << u"  1) Взять мою версию"_s
          << u"  2) Вернуть версию программы"_s << u"  3) Посмотреть различия"_s;
    return lines.join(u'\n');
}

void printDifferences(const Workspace &workspace, const QList<HandEdit> &edits)
{
    for (const HandEdit &edit : edits) {
        QString text;
        try {
            text = QString::fromUtf8(differenceOf(workspace, edit));
        } catch (const std::exception &fault) { // The file has gone on changing.
            text = edit.text() + u'\n' + textOf(fault);
        }
        const bool isCut = text.size() > maxShownDifference;
        printErrorLine(visibleLines(isCut ? text.left(maxShownDifference) + u'…' : text.trimmed()));
    }
}

} // namespace

/// Reads lines until one of them is an answer, and goes on with what `read` makes of it; at the end of the input the
/// run ends instead.
void RunMode::askLine(const QString &question, RunExit atEnd, const ReadAnswer &read)
{
    dropTyped();
    printErrorLine(question);
    asking = true;
    auto *input = new QSocketNotifier(standardInput, QSocketNotifier::Read, this);
    connect(input, &QSocketNotifier::activated, this, [this, input, atEnd, read] { takeLine(input, atEnd, read); });
}

void RunMode::takeLine(QSocketNotifier *input, RunExit atEnd, const ReadAnswer &read)
{
    if (decided || (begun && !core.engine.busy()))
        return input->setEnabled(false);
    const std::optional<QString> line = readAnswer();
    const std::function<void()> next = line ? read(line->trimmed()) : [this, atEnd] { stop(atEnd); };
    if (!next)
        return;
    input->setEnabled(false);
    input->deleteLater();
    asking = false;
    next();
    // What came meanwhile has waited.
    askPermission();
    watchPhase();
}

/// Runs `then` with a yes or a no.
void RunMode::ask(const QString &what, const std::function<void(bool)> &then)
{
    askLine(what + u"\nВыполнить? (да/нет)"_s, RunExit::PermissionNeeded,
            [then](const QString &line) -> std::function<void()> {
                const QString answer = line.toLower();
                if (answer == u"да"_s || answer == u"нет"_s)
                    return [then, yes = answer == u"да"_s] { then(yes); };
                printErrorLine(u"Введите «да» или «нет»."_s);
                return {};
            });
}

/// Runs `then` with whether the user's own versions are to stand.
void RunMode::askAboutEdits(const QList<HandEdit> &edits, const std::function<void(bool)> &then)
{
    const QString question = editQuestion(edits);
    askLine(question, RunExit::AnswerNeeded,
            [this, edits, question, then](const QString &line) -> std::function<void()> {
                if (line == "1"_L1 || line == "2"_L1)
                    return [then, takesOwn = line == "1"_L1] { then(takesOwn); };
                if (line == "3"_L1)
                    printDifferences(core.workspace, edits);
                printErrorLine(line == "3"_L1 ? question : u"Введите 1, 2 или 3."_s);
                return {};
            });
}

} // namespace vesk
