// The backend as the scenes use it: properties, operations and signals, on the demonstration model and a real database.

#include "backend_desk.h"

#include <QDir>
#include <QFileInfo>
#include <QMetaProperty>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

#include <algorithm>

using namespace Qt::StringLiterals;
using namespace vesk;

class BackendTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void everyPropertyIsReadOnlyAndAnnounced()
    {
        const QMetaObject &meta = Backend::staticMetaObject;
        Desk desk;
        for (int i = meta.propertyOffset(); i < meta.propertyCount(); ++i) {
            const QMetaProperty property = meta.property(i);
            QVERIFY2(!property.isWritable() && (property.isConstant() || property.hasNotifySignal()), property.name());
            QVERIFY2(property.read(desk.backend.get()).isValid(), property.name());
        }
        QCOMPARE(desk.phase(), u"IDLE"_s);
    }

    void aProjectIsMadeInAFolderOfItsOwn()
    {
        struct Row {
            QString name;
            QString folder; ///< Of the project, before the dash.
            QString given = u"@"_s; ///< Where it is to be made; "@" stands for a folder of the test.
            QString parent = u"@"_s; ///< Where it is made.
        };
        const QList<Row> rows{{u"Игра"_s, u"Игра"_s},
                              {u"a<b>:c/d"_s, u"a_b__c_d"_s},
                              {u" . . "_s, u"project"_s},
                              {QString(60, u'x'), QString(60, u'x')},
                              {QString(59, u'x') + u".y"_s, QString(59, u'x')},
                              {QString(59, u'x') + u"\U0001F600"_s, QString(59, u'x')}, // no half of a letter
                              {u"../../etc"_s, u".._.._etc"_s},
                              {u"a"_s, u"a"_s, u"file://@/a%20b%23%D0%B9%25"_s, u"@/a b#й%"_s},
                              {u"a"_s, u"a"_s, u"@/a%20b"_s, u"@/a%20b"_s},
                              {u"a"_s, u"a"_s, u"@/a/../b/"_s, u"@/b"_s},
                              {u"a"_s, u"a"_s, u"@/link"_s, u"@/data"_s}};
        for (const auto &[name, folder, given, parent] : rows) {
            Desk desk;
            const QString own = QDir(desk.folder.path()).canonicalPath();
            QFile::link(desk.data(), desk.path(u"link"_s));
            desk.call("createProject", {name, QString(given).replace(u'@', own)});
            QCOMPARE(desk.message(), QString());
            const QString root = desk.read("root").toString();
            QVERIFY2(QRegularExpression(u'^' + QRegularExpression::escape(folder) + u"-[0-9a-f]{8}$"_s)
                         .match(QFileInfo(root).fileName())
                         .hasMatch(),
                     qPrintable(root));
            QCOMPARE(QFileInfo(root).path(), QString(parent).replace(u'@', own));
            QVERIFY(QFileInfo::exists(root + u"/VESK-project.json"_s));
            QCOMPARE(desk.read("projectName").toString(), name);

            desk.reopen();
            QCOMPARE(desk.read("root").toString(), root);
        }
    }

    void aTypedLineAnswersTheQuestion()
    {
        Desk desk(u"Проба"_s);
        desk.call("sendMessage", {u"  Создай калькулятор  "_s});
        QVERIFY2(desk.waitForPhase(u"CLARIFICATION"_s), qPrintable(desk.message()));
        desk.call("sendMessage", {u"Да, локально"_s});
        const QString next = u"progress: Проверка нашла деление на ноль. Как показывать ошибку?"_s;
        QVERIFY(Desk::waitFor([&] { return desk.chat().contains(next); }));
    }

    void aQuestionIsAnsweredInTheChat()
    {
        Desk desk(u"Проба"_s);
        desk.call("sendMessage", {u"что ты умеешь?"_s});
        QVERIFY(desk.read("chatBusy").toBool());
        QCOMPARE(desk.chat(), (QStringList{u"message: что ты умеешь?"_s}));
        desk.call("newConversation");
        QCOMPARE(desk.message(), u"Дождитесь завершения текущей работы."_s);
        QTRY_VERIFY(!desk.read("chatBusy").toBool());
        QCOMPARE(desk.chat().size(), 2);
        QVERIFY(desk.chat().value(1).startsWith(u"message: Я работаю в деморежиме"_s));
        QCOMPARE(desk.read("tasks").toList().size(), 0);
    }

    void requestsQueueAndTheQueueIsKept()
    {
        Desk desk(u"Проба"_s);
        desk.call("sendMessage", {u"Создай калькулятор"_s});
        for (int i = 0; i < 50; ++i)
            desk.call("start", {u"Создай калькулятор %1"_s.arg(i), false, 5000, u""_s, u"[]"_s});
        QCOMPARE(desk.read("queue").toList().size(), 50);
        QCOMPARE(desk.message(), QString());
        desk.call("start", {u"Создай калькулятор"_s, false, 5000, u""_s, u"[]"_s});
        QCOMPARE(desk.message(), u"В очереди уже 50 задач."_s);
        const QString first = desk.read("queue").toList()[0].toMap().value(u"id"_s).toString();
        desk.call("cancelQueued", {first});
        QCOMPARE(desk.read("queue").toList().size(), 49);

        desk.reopen();
        QCOMPARE(desk.read("queue").toList().size(), 49);
        QVERIFY(desk.read("queuePaused").toBool());
        desk.call("sendMessage", {u"продолжай"_s});
        QVERIFY(!desk.read("queuePaused").toBool());
        QTRY_COMPARE(desk.read("queue").toList().size(), 48);
        desk.call("stop");
    }

    void aTaskThatCouldNotBePutInOrderIsToldAndIsNoRun()
    {
        Desk desk(u"Проба"_s);
        desk.call("sendMessage", {u"Создай калькулятор"_s});
        desk.call("stop");
        desk.sql(
            u"UPDATE tasks SET body=replace(body,'\"phase\":\"CANCELLED\"','\"phase\":\"EXECUTION\"'),updated='2000'"_s);
        desk.sql(u"CREATE TRIGGER full BEFORE INSERT ON tasks BEGIN SELECT RAISE(ABORT, 'disk full'); END"_s);
        desk.reopen();
        QVERIFY(desk.message().startsWith(u"Незаконченные задачи не удалось привести в порядок: "_s));
        QCOMPARE(desk.phase(), u"INTERRUPTED"_s);
    }

    void stopEndsEverything()
    {
        Desk desk(u"Проба"_s);
        desk.call("sendMessage", {u"Создай калькулятор"_s});
        desk.call("stop");
        QCOMPARE(desk.phase(), u"CANCELLED"_s);
        QCOMPARE(desk.read("apiStatus").toString(), u"Остановлено"_s);
        QVERIFY(desk.read("queuePaused").toBool());
        QCOMPARE(desk.chat(u"report"_s).size(), 1);

        desk.call("discuss", {u"привет"_s});
        desk.call("stop");
        QVERIFY(!desk.read("chatBusy").toBool());
        QCOMPARE(desk.chat().last(), u"progress: Ответ остановлен."_s);
        QTest::qWait(500);
        QCOMPARE(desk.chat().last(), u"progress: Ответ остановлен."_s);
    }

    void tasksAreChosenRenamedAndArchived()
    {
        Desk desk(u"Проба"_s);
        desk.call("sendMessage", {u"Создай калькулятор"_s});
        desk.call("stop");
        const QString task = desk.read("tasks").toList()[0].toMap().value(u"id"_s).toString();
        desk.call("renameTask", {task, u"  "_s});
        QCOMPARE(desk.message(), u"Введите название."_s);
        desk.call("renameTask", {task, u" Мой калькулятор "_s + QString(100, u'x')});
        const QString title
            = desk.read("tasks").toList()[0].toMap().value(u"spec"_s).toMap().value(u"title"_s).toString();
        QCOMPARE(title.size(), 100);
        QVERIFY(title.startsWith(u"Мой калькулятор x"_s));
        desk.call("selectTask", {u"unknown"_s});
        QCOMPARE(desk.message(), u"Эта задача относится к другому проекту."_s);
        desk.call("archiveTask", {task});
        desk.call("setPriority", {u"calculator"_s, 2});
        QCOMPARE(desk.read("tasks").toList().size(), 0);
        QCOMPARE(desk.phase(), u"IDLE"_s);
        QVERIFY(desk.backend->search(u"Мой калькулятор"_s).contains(task));
    }

    void refusalsAreTextsAndChangeNothing()
    {
        const std::initializer_list<std::tuple<QByteArray, QVariantList, QString>> rows{
            {"createProject", {u"  "_s, u"/tmp"_s}, u"Укажите название проекта."_s},
            {"pinAsset", {u"нет.png"_s, u"Баннер"_s}, u"Ресурс не найден в проекте"_s},
            {"selectProject", {u"unknown"_s}, u"Проект не найден."_s},
            {"openFile", {u"../../etc/passwd"_s}, u"Unsafe path component"_s},
            {"addMemory", {u"Note"_s, u" \n"_s}, u"Введите текст для сохранения."_s},
            {"discuss", {u" "_s}, u"Введите сообщение."_s},
            {"setPreference", {u"background_js"_s, QString(32001, u'x')}, u"Код фона слишком большой"_s},
            {"setPreference", {u"custom_agents"_s, 1}, u"Неизвестная настройка"_s},
        };
        Desk desk(u"Проба"_s);
        const QVariantMap before = desk.lasting();
        for (const auto &[operation, arguments, text] : rows) {
            desk.call(operation, arguments);
            QCOMPARE(desk.message(), text);
            QCOMPARE(desk.lasting(), before);
            QCOMPARE(desk.chat(), QStringList());
        }
    }

    void refreshesAreCoalesced()
    {
        Desk desk(u"Проба"_s);
        QTest::qWait(60);
        QSignalSpy changes(desk.backend.get(), &Backend::changed);
        QSignalSpy chats(desk.backend.get(), &Backend::chatChanged);
        for (int i = 0; i < 20; ++i)
            desk.call("addMemory", {u"Note"_s, u"text %1"_s.arg(i)});
        QCOMPARE(changes.count(), 0);
        QTRY_COMPARE(changes.count(), 1);
        QCOMPARE(chats.count(), 1);
        QCOMPARE(desk.read("memory").toList().size(), 20);
    }

    void whatCannotBeReadIsEmptyAndToldUntilItCan()
    {
        Desk desk(u"Проба"_s);
        desk.call("discuss", {u"привет"_s});
        QTRY_VERIFY(!desk.read("chatBusy").toBool());
        QCOMPARE(desk.chat().size(), 2);
        desk.sql(u"ALTER TABLE messages RENAME TO gone"_s);
        desk.sql(u"ALTER TABLE file_revisions RENAME TO gone_too"_s);
        QCOMPARE(desk.backend->fileHistory(u"a"_s), QString());
        QVERIFY2(desk.message().contains(u"file_revisions"_s), qPrintable(desk.message()));
        // A transaction that fails makes the backend look at everything again.
        desk.sql(u"CREATE TRIGGER no BEFORE INSERT ON decision_logs BEGIN SELECT RAISE(FAIL, 'no'); END"_s);
        desk.call("addMemory", {u"User Decisions"_s, u"text"_s});
        QCOMPARE(desk.chat(), QStringList());
        QVERIFY2(desk.message().contains(u"messages"_s), qPrintable(desk.message()));

        desk.sql(u"INSERT INTO gone SELECT 'new', task, body, updated FROM gone LIMIT 1"_s);
        desk.sql(u"ALTER TABLE gone RENAME TO messages"_s);
        QCOMPARE(desk.chat().size(), 3);
    }

    void whatCannotBeStoredNeitherThrowsNorStaysHalfDone()
    {
        Desk desk(u"Проба"_s);
        desk.call("sendMessage", {u"Создай калькулятор"_s});
        desk.call("start", {u"Создай калькулятор ещё раз"_s, false, 5000, u""_s, u"[]"_s});
        const auto refuse = [&](const QString &table) {
            desk.sql(u"CREATE TRIGGER no_%1 BEFORE INSERT ON %1 BEGIN SELECT RAISE(FAIL, 'no %1'); END"_s.arg(table));
        };
        for (const QString &table : {u"settings"_s, u"messages"_s, u"memory_entries"_s, u"decision_logs"_s})
            refuse(table);
        const QVariant preferences = desk.read("preferences");
        const QVariant queue = desk.read("queue");
        desk.call("sendMessage", {u"подключи mcp"_s});
        QVERIFY2(desk.message().contains(u"no messages"_s), qPrintable(desk.message()));
        desk.call("setPreference", {u"glass"_s, false});
        QVERIFY2(desk.message().contains(u"no settings"_s), qPrintable(desk.message()));
        desk.call("start", {u"Создай калькулятор в третий раз"_s, false, 5000, u""_s, u"[]"_s});
        desk.call("cancelQueued", {desk.read("queue").toList()[0].toMap().value(u"id"_s).toString()});
        desk.sql(u"DROP TRIGGER no_memory_entries"_s);
        desk.call("addMemory", {u"User Decisions"_s, u"text"_s});
        QVERIFY2(desk.message().contains(u"no decision_logs"_s), qPrintable(desk.message()));
        QCOMPARE(desk.read("preferences"), preferences);
        QCOMPARE(desk.read("queue"), queue);

        desk.call("stop");
        QVERIFY2(!desk.message().isEmpty(), "stop has failed to store");
        QCOMPARE(desk.phase(), u"CANCELLED"_s);
        QVERIFY(desk.read("queuePaused").toBool());
        const QVariantList memory = desk.read("memory").toList();
        QVERIFY(std::ranges::none_of(memory, [](const QVariant &entry) {
            return entry.toMap().value(u"category"_s).toString() == "User Decisions";
        }));

        desk.sql(u"DROP TRIGGER no_messages"_s);
        desk.call("discuss", {u"привет"_s});
        QVERIFY(desk.busy());
        refuse(u"messages"_s);
        QVERIFY(Desk::waitFor([&] { return !desk.busy(); })); // The answer comes, and can't be kept.
        QVERIFY2(desk.message().contains(u"no messages"_s), qPrintable(desk.message()));
    }

    void aProjectThatCannotBeReadIsNotSelected()
    {
        Desk desk;
        desk.createProject(u"Первый"_s);
        desk.createProject(u"Второй"_s);
        const QString root = desk.read("root").toString();
        desk.sql(u"ALTER TABLE task_outlines RENAME TO gone"_s);
        desk.call("selectProject", {desk.read("projects").toList()[0].toMap().value(u"id"_s).toString()});
        QVERIFY(desk.message().contains(u"task_outlines"_s));
        QCOMPARE(desk.read("root").toString(), root);
        QCOMPARE(desk.read("projectName").toString(), u"Второй"_s);
    }
};

QTEST_GUILESS_MAIN(BackendTest)
#include "tst_backend.moc"
