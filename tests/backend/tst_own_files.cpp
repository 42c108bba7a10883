// What the user does to a project's files besides asking for tasks.

#include "backend_desk.h"
#include "files.h"
#include "helpers.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace vesk;

class OwnFilesTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
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

private:
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
