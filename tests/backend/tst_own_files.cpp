// What the user does to a project's files besides asking for tasks.

#include "backend_desk.h"
#include "code_colours.h"
#include "differences.h"
#include "files.h"
#include "helpers.h"
#include "marked_line.h"
#include "process_containment.h"

#include <QDir>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace vesk;

class OwnFilesTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { ProcessContainment::useGuard(QStringLiteral(VESK_GUARD_PROGRAM)); }
    void init()
    {
        desk = std::make_unique<Desk>(u"Проба"_s);
        root = desk->read("root").toString();
    }
    void cleanup() { desk.reset(); }

    void editsAreNamedAndSettledOneByOneOrAllAtOnce()
    {
        makeCalculator();
        save(root + u"/calculator.html"_s, "моё");
        QVERIFY(QFile::remove(root + u"/README-calculator.md"_s));
        desk->call("start", {u"Создай калькулятор"_s, false, 5000, u""_s, u"[]"_s});
        QVERIFY(desk->message().startsWith(u"Задача не начата: файлы проекта изменены вне программы: "_s));
        QVERIFY(Desk::waitFor([&] { return edits().size() == 2; }));
        QVERIFY(edits().contains(u"изменён calculator.html"_s) && edits().contains(u"удалён README-calculator.md"_s));

        desk->call("undoEdits", {u"README-calculator.md"_s});
        QVERIFY(Desk::waitFor([&] { return edits() == QStringList{u"изменён calculator.html"_s}; }));
        desk->call("takeEdits", {u""_s});
        QVERIFY(Desk::waitFor([&] { return edits().isEmpty(); }));
        QCOMPARE(desk->message(), QString());
        QCOMPARE(contentOf(root + u"/calculator.html"_s), "моё");
        QVERIFY(QFile::exists(root + u"/README-calculator.md"_s));
        desk->call("start", {u"Создай калькулятор"_s, false, 5000, u""_s, u"[]"_s});
        QCOMPARE(desk->message(), QString());
        desk->call("takeEdits", {u""_s});
        QCOMPARE(desk->message(), u"Ответьте на вопрос задачи или остановите её."_s);
    }

    void whatHasChangedIsComparedFileByFile()
    {
        makeCalculator();
        QByteArray lines;
        for (int i = 1; i <= 60; ++i)
            lines += "line " + QByteArray::number(i) + "\n";
        save(root + u"/calculator.html"_s, lines);
        desk->call("takeEdits", {u"calculator.html"_s});
        save(root + u"/calculator.html"_s, QByteArray(lines).replace("line 30\n", "<b>line</b> 31\nnew\n"));

        desk->call("compareEdit", {u"calculator.html"_s});
        Differences &shown = *desk->backend->property("differences").value<Differences *>();
        const auto row = [&](int at, const char *role) {
            const DifferenceModel &model = *shown.lines();
            static const QRegularExpression colour(u"</?font[^>]*>"_s); // comes when it is there
            return model.data(model.index(at), model.roleNames().key(role)).toString().remove(colour);
        };
        const auto kinds = [&] {
            QStringList all;
            for (int at = 0; at < shown.lines()->rowCount(); ++at)
                all.append(row(at, "kind"));
            return all.join(u' ');
        };
        QVERIFY(Desk::waitFor([&] { return !shown.isBusy(); }));
        QCOMPARE(kinds(), u"fold same same same changed added same same same fold"_s);
        QCOMPARE(row(4, "oldText"), u"line&nbsp;<u><b>30</b></u>"_s);
        QVERIFY(row(4, "newText").startsWith(u"<u><b>&lt;b&gt;</b></u>line"_s));
        QCOMPARE(row(5, "newNumber"), u"31"_s);
        if (!coloursOf(u"a.html"_s, {"<b>"}, true, false).isEmpty()) {
            const QModelIndex line = shown.lines()->index(4);
            const int role = shown.lines()->roleNames().key("newText");
            QVERIFY(Desk::waitFor([&] { return shown.lines()->data(line, role).toString().contains(u"<font"_s); }));
            const QString dark = shown.lines()->data(line, role).toString();
            shown.setDark(false);
            QVERIFY(Desk::waitFor([&] { return shown.lines()->data(line, role).toString() != dark; }));
            const LineColours light = coloursOf(u"a.html"_s, {"<b a='c'>&d; <!-- e -->"}, false, false);
            for (const ColouredPart &part : light.first())
                QVERIFY2(qGray(part.colour) < 120, qPrintable(QString::number(part.colour, 16))); // on a light ground
        }
        QCOMPARE(shown.lines()->change(0, true), 4);
        QCOMPARE(shown.lines()->change(9, false), 4);
        shown.lines()->unfold(0);
        QCOMPARE(shown.lines()->rowCount(), 35);
        QCOMPARE(row(25, "oldNumber"), u"26"_s);
        shown.setBeside(false);
        QCOMPARE(kinds(), u"fold same same same removed added added same same same fold"_s);

        QCOMPARE(markedLine(u"a<bc d"_s, {{1, 3}}, {{0, 2, 0x112233}, {5, 1, 0xff}}),
                 u"<font color=\"#112233\">a</font><u><b><font color=\"#112233\">&lt;</font></b></u><u><b>bc</b></u>"
                 "&nbsp;<font color=\"#0000ff\">d</font>"_s);
        QCOMPARE(markedLine(u" два слова  и"_s, {}), u"&nbsp;два слова&nbsp;&nbsp;и"_s);
        QCOMPARE(markedLine(QString::fromUcs4(U" \u202e\tя\u00a0\U0001f600\U000e0041"), {}),
                 u"&nbsp;<i>\\u{202e}</i>&nbsp;&nbsp;&nbsp;&nbsp;я<i>\\u{a0}</i>\U0001f600<i>\\u{e0041}</i>"_s);
        desk->call("compareTask", {u""_s});
        QVERIFY(Desk::waitFor([&] { return !shown.isBusy(); }));
        QCOMPARE(shown.files().size(), 2);
        QCOMPARE(shown.total().added, 60 + 3);
        shown.select(u"README-calculator.md"_s);
        QCOMPARE(row(0, "kind"), u"added"_s);
        desk->call("compareRevisions", {u"calculator.html"_s, 2, 2});
        QVERIFY(Desk::waitFor([&] { return !shown.isBusy(); }));
        QCOMPARE(shown.note(), u"Строки не изменились."_s);
    }

    void goingBackIsUndoneAsOftenAsWanted()
    {
        makeCalculator();
        QVERIFY(!desk->read("restoreCanUndo").toBool());
        const QByteArray page = contentOf(root + u"/calculator.html"_s);
        const QVariantList points = desk->call("restorePoints").toList();
        QCOMPARE(points.size(), 1);
        QVERIFY(points[0].toMap()[u"title"_s].toString().startsWith(u"Перед задачей: "_s));
        const QString start = points[0].toMap()[u"id"_s].toString();

        desk->call("compareRestore", {start});
        QCOMPARE(desk->backend->property("differences").value<Differences *>()->files().size(), 2);
        const auto settled = [&] { return Desk::waitFor([&] { return !desk->read("restoring").toBool(); }); };
        desk->call("restore", {start});
        desk->call("start", {u"Создай калькулятор"_s, false, 5000, u""_s, u"[]"_s});
        QCOMPARE(desk->message(), u"Дождитесь восстановления файлов."_s);
        QVERIFY(settled() && !QFile::exists(root + u"/calculator.html"_s));
        desk->reopen();
        for (int round = 0; round < 3; ++round) {
            QVERIFY(desk->read("restoreCanUndo").toBool());
            desk->call("undoRestore");
            QVERIFY(settled());
            QCOMPARE(contentOf(root + u"/calculator.html"_s), round % 2 == 0 ? page : QByteArray("(none)"));
        }
        desk->call("restoreRevision", {u"calculator.html"_s, 1});
        QVERIFY(contentOf(root + u"/calculator.html"_s) != page);
    }

    void aFolderOfTheUsersBecomesAProject()
    {
        const QString folder = desk->path(u"mine"_s);
        for (int i = 0; i < 300; ++i)
            save(folder + u"/d/f%1.txt"_s.arg(i), "mine");
        save(folder + u"/.env"_s, "KEY=1");
        const auto phase = [&] { return desk->read("takeIn").toMap()[u"phase"_s].toString(); };
        desk->call("lookAtFolder", {folder});
        QVERIFY(Desk::waitFor([&] { return phase() == u"offer"_s; }));
        QCOMPARE(desk->read("takeIn").toMap()[u"count"_s].toInt(), 300);
        QCOMPARE(desk->read("root").toString(), root); // nothing has happened yet
        desk->call("acceptFolder");
        QCOMPARE(phase(), u"taking"_s);
        QVERIFY(Desk::waitFor([&] { return desk->read("takeIn").toMap()[u"done"_s].toInt() > 0; }));
        desk->reopen(); // in the middle
        QVERIFY(Desk::waitFor([&] { return phase().isEmpty(); }));
        QCOMPARE(desk->read("files").toList().size(), 300);
        QCOMPARE(desk->read("handEdits").toList().size(), 0);
        QCOMPARE(contentOf(folder + u"/d/f7.txt"_s), "mine");
        desk->call("exportFiles", {desk->path(u"copy.zip"_s), u""_s});
        QCOMPARE(desk->message(), QString());
        desk->call("lookAtFolder", {folder});
        QCOMPARE(desk->message(), u"Дождитесь, пока файлы проекта будут сохранены."_s);
        QVERIFY(Desk::waitFor([&] { return desk->message().startsWith(u"Файлы проекта сохранены: "_s); }));
        QVERIFY(QFile::exists(desk->path(u"copy.zip"_s)));
        desk->call("lookAtFolder", {folder});
        QCOMPARE(phase(), QString()); // it is a project by now

        // Many edits are settled bit by bit, and nothing begins in between.
        for (int i = 0; i < 300; ++i)
            save(folder + u"/d/f%1.txt"_s.arg(i), "edited");
        desk->call("lookForEdits");
        QVERIFY(Desk::waitFor([&] { return edits().size() == 300; }));
        desk->call("undoEdits", {u""_s});
        QCOMPARE(contentOf(folder + u"/d/f299.txt"_s), "mine");
        QCOMPARE(contentOf(folder + u"/d/f0.txt"_s), "edited");
        desk->call("start", {u"Создай калькулятор"_s, false, 5000, u""_s, u"[]"_s});
        QCOMPARE(desk->message(), u"Дождитесь, пока правки будут разобраны."_s);
        QVERIFY(Desk::waitFor([&] { return edits().isEmpty(); }));
        QCOMPARE(contentOf(folder + u"/d/f0.txt"_s), "mine");
    }

    void aTaskIsCommittedAndNothingElse()
    {
        if (QStandardPaths::findExecutable(u"git"_s).isEmpty())
            QSKIP("git is not installed");
        for (const char *setup : {"init -q -b work ..", "config user.name T", "config user.email t@example.org",
                                  "config core.quotepath false"})
            git(QByteArray(setup));
        save(root + u"/staged"_s, "1");
        git("add staged");
        git("commit -q -m first");
        makeCalculator();
        QVERIFY(!commit(u"possible"_s).toBool());
        desk->call("setPreference", {u"git_commit"_s, true});
        QVERIFY(commit(u"possible"_s).toBool());
        save(root + u"/staged"_s, "2");
        git("add staged");
        save(root + u"/untracked"_s, "2");
        desk->call("takeEdits", {u"untracked"_s}); // the user's own, though it came with the task
        const auto hook = [&](const QByteArray &line) {
            save(root + u"/../.git/hooks/pre-commit"_s, "#!/bin/sh\n" + line + '\n');
            QFile::setPermissions(root + u"/../.git/hooks/pre-commit"_s, QFile::ReadOwner | QFile::ExeOwner);
        };
        hook("echo no >&2; exit 1");

        const auto settled = [&] { return Desk::waitFor([&] { return commit(u"phase"_s).toString() == u"offer"_s; }); };
        desk->call("lookAtCommit");
        QVERIFY(settled());
        QCOMPARE(commit(u"fault"_s).toString(), QString());
        QCOMPARE(commit(u"branch"_s).toString(), u"work"_s);
        QCOMPARE(commit(u"files"_s).toList().size(), 2);
        const QString text = commit(u"message"_s).toString();
        QVERIFY(text.startsWith(u"Создай калькулятор\n\nЗадача завершена"_s));
        const QByteArray before = git("status --porcelain");
        desk->call("commitFiles", {text});
        desk->call("start", {u"Создай калькулятор"_s, false, 5000, u""_s, u"[]"_s});
        QCOMPARE(desk->message(), u"Дождитесь конца фиксации."_s);
        QVERIFY(settled());
        QVERIFY2(commit(u"fault"_s).toString().contains(u"no"_s), qPrintable(commit(u"fault"_s).toString()));
        QCOMPARE(git("status --porcelain"), before); // the index is as it was

        QVERIFY(QFile::remove(root + u"/../.git/hooks/pre-commit"_s));
        save(root + u"/calculator.html"_s, "mine");
        desk->call("commitFiles", {text});
        QCOMPARE(desk->message(), u"Файл изменён вне программы: calculator.html"_s);
        desk->call("undoEdits", {u"calculator.html"_s});
        git("add README-calculator.md");
        desk->call("commitFiles", {text});
        QVERIFY(settled());
        QVERIFY(commit(u"fault"_s).toString().startsWith(u"Состояние файлов в git изменилось"_s));
        git("reset -q README-calculator.md");
        desk->call("lookAtCommit");
        QVERIFY(settled());
        git("checkout -q -b other");
        desk->call("commitFiles", {text});
        QVERIFY(settled());
        QVERIFY(commit(u"fault"_s).toString().startsWith(u"Ветка репозитория сменилась"_s));
        git("checkout -q work");
        desk->call("commitFiles", {u"# Моё\n\nтекст"_s});
        QVERIFY(Desk::waitFor([&] { return commit(u"phase"_s).toString() == u"done"_s; }));
        QVERIFY(commit(u"result"_s).toString().startsWith(u"Зафиксировано в ветке work: "_s));
        const QByteArray folder = QFile::encodeName(QDir(root).dirName()) + '/';
        QCOMPARE(git("show --format=%B --name-only HEAD"),
                 "# Моё\n\nтекст\n\n\n" + folder + "README-calculator.md\n" + folder + "calculator.html\n");
        QCOMPARE(git("status --porcelain ."),
                 "M  " + folder + "staged\n?? " + folder + "VESK-project.json\n?? " + folder + "untracked\n");
        desk->call("lookAtCommit");
        QVERIFY(settled());
        QCOMPARE(commit(u"fault"_s).toString(), u"Все файлы задачи уже зафиксированы."_s);
        git("checkout -q --detach");
        desk->call("lookAtCommit");
        QVERIFY(settled());
        QCOMPARE(commit(u"fault"_s).toString(), u"Репозиторий не на ветке: переключитесь на неё."_s);

        // The program ends while a hook is at work: the repository is left without its locks.
        git("checkout -q work");
        git("reset -q --soft HEAD~1");
        git("reset -q -- calculator.html README-calculator.md");
        hook("touch begun; exec sleep 100");
        desk->call("lookAtCommit");
        QVERIFY(settled());
        desk->call("commitFiles", {text});
        const QDir store(root + u"/../.git"_s);
        const auto locks = [&] { return store.entryList({u"*.lock"_s}, QDir::Files); };
        const QString begun = root + u"/../begun"_s;
        QVERIFY(Desk::waitFor([&] { return QFile::exists(begun); }));
        QVERIFY(!locks().isEmpty());
        QVERIFY(!desk->call("mayClose").toBool());
        desk->call("finish");
        QVERIFY(QFile::remove(begun));
        QCOMPARE(locks(), QStringList());
        QCOMPARE(git("status --porcelain"), before);
    }

private:
    QVariant commit(const QString &field) const { return desk->read("commit").toMap().value(field); }
    /// What git prints in the project's folder.
    QByteArray git(const QByteArray &arguments) const
    {
        QProcess process;
        process.setWorkingDirectory(root);
        process.start(u"git"_s, QString::fromUtf8(arguments).split(u' '));
        return process.waitForFinished() ? process.readAllStandardOutput() : QByteArray("(not run)");
    }
    /// A finished task of the demonstration, which makes two files.
    void makeCalculator()
    {
        desk->call("sendMessage", {u"Создай калькулятор"_s});
        for (int asked = 0; asked < 2; ++asked) {
            QVERIFY(desk->waitForPhase(u"CLARIFICATION"_s));
            desk->call("clarify", {u"Да"_s});
        }
        QVERIFY2(desk->waitForPhase(u"COMPLETED"_s), qPrintable(desk->message()));
    }
    QStringList edits() const
    {
        QStringList texts;
        for (const QVariant &edit : desk->read("handEdits").toList())
            texts.append(edit.toMap()[u"text"_s].toString());
        return texts;
    }

    std::unique_ptr<Desk> desk;
    QString root;
};

QTEST_GUILESS_MAIN(OwnFilesTest)
#include "tst_own_files.moc"
