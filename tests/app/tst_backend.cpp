// The backend as the scenes use it: properties, operations and signals through the meta-object, on the demonstration
// model and a real database.

#include "backend.h"
#include "helpers.h"
#include "roles.h"

#include <QDir>
#include <QFileInfo>
#include <QMetaProperty>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <memory>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

/// A backend on folders of its own.
struct Desk {
    QTemporaryDir folder;
    std::unique_ptr<Backend> backend;

    Desk()
    {
        QDir().mkpath(folder.filePath(u"data"_s));
        reopen();
    }
    void reopen()
    {
        backend.reset();
        backend = std::make_unique<Backend>(folder.filePath(u"data"_s));
    }
    template <typename... Args> void call(const char *operation, Args... arguments)
    {
        QVERIFY2(QMetaObject::invokeMethod(backend.get(), operation, Qt::DirectConnection, arguments...), operation);
    }
    QVariant read(const char *property) const { return backend->property(property); }
    QString message() const { return read("message").toString(); }
    QString phase() const { return read("uiState").toMap().value(u"phase"_s).toString(); }
    /// Changes the database behind the backend's back.
    void sql(const QString &statement) const
    {
        {
            QSqlDatabase database = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"test"_s);
            database.setDatabaseName(folder.filePath(u"data/vesk.sqlite"_s));
            QVERIFY(database.open());
            QSqlQuery query(database);
            QVERIFY2(query.exec(statement), qPrintable(query.lastError().text()));
        }
        QSqlDatabase::removeDatabase(u"test"_s);
    }
    void createProject(const QString &name = u"Проба"_s) { call("createProject", name, folder.path()); }
    QStringList chat(const QString &kind = {}) const
    {
        QStringList lines;
        const QVariantList rows = read("chat").toList();
        for (const QVariant &row : rows) {
            const QVariantMap map = row.toMap();
            if (kind.isEmpty() || map.value(u"kind"_s).toString() == kind)
                lines.append(map.value(u"content"_s).toString());
        }
        return lines;
    }
    bool waitForPhase(const QString &wanted) const
    {
        return QTest::qWaitFor([&] { return phase() == wanted; }, 30000);
    }
};

} // namespace

class BackendTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { registerPrompts(); }
    void everyPropertyIsReadOnlyAndAnnounced();
    void aProjectIsMadeInAFolderOfItsOwn_data();
    void aProjectIsMadeInAFolderOfItsOwn();
    void aLineBecomesAFinishedProject();
    void aQuestionIsAnsweredInTheChat();
    void demoModeDeclinesWhatItCannotDo();
    void requestsQueueAndTheQueueIsKept();
    void stopEndsEverything();
    void tasksAreChosenRenamedAndArchived();
    void aRestartMarksWhatWasInterrupted();
    void refusalsAreTextsAndChangeNothing_data();
    void refusalsAreTextsAndChangeNothing();
    void refreshesAreCoalesced();
    void whatCannotBeReadIsEmptyAndToldUntilItCan();
    void whatCannotBeStoredNeitherThrowsNorStaysHalfDone();
    void aProjectThatCannotBeReadIsNotSelected();
};

void BackendTest::everyPropertyIsReadOnlyAndAnnounced()
{
    const QMetaObject &meta = Backend::staticMetaObject;
    QCOMPARE(meta.propertyCount() - meta.propertyOffset(), 30);
    Desk desk;
    for (int i = meta.propertyOffset(); i < meta.propertyCount(); ++i) {
        const QMetaProperty property = meta.property(i);
        QVERIFY2(!property.isWritable() && property.hasNotifySignal(), property.name());
        QVERIFY2(property.read(desk.backend.get()).isValid(), property.name());
    }
    QCOMPARE(desk.phase(), u"IDLE"_s);
}

void BackendTest::aProjectIsMadeInAFolderOfItsOwn_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("folder");
    QTest::newRow("plain") << u"Игра"_s << u"Игра"_s;
    QTest::newRow("forbidden letters") << u"a<b>:c/d"_s << u"a_b__c_d"_s;
    QTest::newRow("only forbidden") << u"???"_s << u"___"_s;
    QTest::newRow("dots and blanks") << u" . . "_s << u"project"_s;
    QTest::newRow("60 letters") << QString(60, u'x') << QString(60, u'x');
    QTest::newRow("61 letters") << QString(59, u'x') + u".y"_s << QString(59, u'x');
    QTest::newRow("path") << u"../../etc"_s << u".._.._etc"_s;
}

void BackendTest::aProjectIsMadeInAFolderOfItsOwn()
{
    QFETCH(QString, name);
    QFETCH(QString, folder);
    Desk desk;
    desk.createProject(name);
    QCOMPARE(desk.message(), QString());
    const QString root = desk.read("root").toString();
    QVERIFY2(QRegularExpression(u'^' + QRegularExpression::escape(folder) + u"-[0-9a-f]{8}$"_s)
                 .match(QFileInfo(root).fileName())
                 .hasMatch(),
             qPrintable(root));
    QCOMPARE(QFileInfo(root).path(), QDir(desk.folder.path()).canonicalPath());
    QVERIFY(QFileInfo::exists(root + u"/VESK-project.json"_s));
    QCOMPARE(desk.read("projectName").toString(), name);

    desk.reopen();
    QCOMPARE(desk.read("root").toString(), root);
}

void BackendTest::aLineBecomesAFinishedProject()
{
    Desk desk;
    desk.createProject();
    desk.call("sendMessage", u"  Создай калькулятор  "_s);
    QVERIFY2(desk.waitForPhase(u"CLARIFICATION"_s), qPrintable(desk.message()));
    QVERIFY(
        desk.chat().contains(u"Создать локальный калькулятор для браузера, без аккаунта и внешних зависимостей?"_s));
    desk.call("sendMessage", u"Да, локально"_s);
    // The plan's question about division by zero.
    QVERIFY(QTest::qWaitFor(
        [&] { return desk.chat().contains(u"Проверка нашла деление на ноль. Как показывать ошибку?"_s); }, 30000));
    QVERIFY(desk.waitForPhase(u"CLARIFICATION"_s));
    desk.call("clarify", u"Показать сообщение рядом с результатом"_s);
    QVERIFY(desk.waitForPhase(u"COMPLETED"_s));

    QTRY_VERIFY(!desk.chat(u"report"_s).isEmpty());
    QVERIFY(desk.chat(u"report"_s).value(0).startsWith(u"Задача завершена."_s));
    QVERIFY(desk.chat(u"file"_s).contains(u"calculator.html · версия 2. Проверяю."_s));
    QVERIFY(desk.backend->fileContent(u"calculator.html"_s).contains(u"b===0"_s));
    QCOMPARE(desk.read("tasks").toList().size(), 1);
    QVERIFY(!desk.read("events").toList().isEmpty());
    QCOMPARE(desk.read("files").toList().size(), 2);
    QVERIFY(!desk.read("files").toList()[0].toMap().contains(u"content"_s));
    QVERIFY(desk.read("memory").toList()[0].toMap().value(u"text"_s).toString().contains(u"Этап: COMPLETED"_s));
}

void BackendTest::aQuestionIsAnsweredInTheChat()
{
    Desk desk;
    desk.createProject();
    desk.call("sendMessage", u"что ты умеешь?"_s);
    QVERIFY(desk.read("chatBusy").toBool());
    QCOMPARE(desk.chat(), (QStringList{u"что ты умеешь?"_s}));
    desk.call("newConversation");
    QCOMPARE(desk.message(), u"Дождитесь завершения текущей работы."_s);
    QTRY_VERIFY(!desk.read("chatBusy").toBool());
    QCOMPARE(desk.chat().size(), 2);
    QVERIFY(desk.chat().value(1).startsWith(u"Я работаю в деморежиме"_s));
    QCOMPARE(desk.read("tasks").toList().size(), 0);
}

void BackendTest::demoModeDeclinesWhatItCannotDo()
{
    Desk desk;
    desk.createProject();
    desk.call("sendMessage", u"Напиши письмо"_s);
    QCOMPARE(desk.chat().size(), 2);
    QVERIFY(desk.chat().value(1).startsWith(u"Сейчас включён деморежим."_s));
    QCOMPARE(desk.message(), QString());
    QCOMPARE(desk.phase(), u"IDLE"_s);
}

void BackendTest::requestsQueueAndTheQueueIsKept()
{
    Desk desk;
    desk.createProject();
    desk.call("sendMessage", u"Создай калькулятор"_s);
    for (int i = 0; i < 50; ++i)
        desk.call("start", u"Создай калькулятор %1"_s.arg(i), false, 5000, u""_s, u"[]"_s);
    QCOMPARE(desk.read("queue").toList().size(), 50);
    QCOMPARE(desk.message(), QString());
    desk.call("start", u"Создай калькулятор"_s, false, 5000, u""_s, u"[]"_s);
    QCOMPARE(desk.message(), u"В очереди уже 50 задач."_s);
    const QString first = desk.read("queue").toList()[0].toMap().value(u"id"_s).toString();
    desk.call("cancelQueued", first);
    desk.call("cancelQueued", u"unknown"_s);
    QCOMPARE(desk.read("queue").toList().size(), 49);

    desk.reopen();
    QCOMPARE(desk.read("queue").toList().size(), 49);
    QVERIFY(desk.read("queuePaused").toBool());
    desk.call("sendMessage", u"продолжай"_s);
    QVERIFY(!desk.read("queuePaused").toBool());
    QTRY_COMPARE(desk.read("queue").toList().size(), 48);
    desk.call("stop");
}

void BackendTest::stopEndsEverything()
{
    Desk desk;
    desk.createProject();
    desk.call("sendMessage", u"Создай калькулятор"_s);
    desk.call("stop");
    QCOMPARE(desk.phase(), u"CANCELLED"_s);
    QCOMPARE(desk.read("apiStatus").toString(), u"Остановлено"_s);
    QVERIFY(desk.read("queuePaused").toBool());
    QCOMPARE(desk.chat(u"report"_s).size(), 1);

    desk.call("discuss", u"привет"_s);
    desk.call("stop");
    QVERIFY(!desk.read("chatBusy").toBool());
    QCOMPARE(desk.chat().last(), u"Ответ остановлен."_s);
    QTest::qWait(500);
    QCOMPARE(desk.chat().last(), u"Ответ остановлен."_s);
}

void BackendTest::tasksAreChosenRenamedAndArchived()
{
    Desk desk;
    desk.createProject();
    desk.call("sendMessage", u"Создай калькулятор"_s);
    desk.call("stop");
    const QString task = desk.read("tasks").toList()[0].toMap().value(u"id"_s).toString();
    desk.call("renameTask", task, u"  "_s);
    QCOMPARE(desk.message(), u"Введите название."_s);
    desk.call("renameTask", task, u" Мой калькулятор "_s + QString(100, u'x'));
    const QString title = desk.read("tasks").toList()[0].toMap().value(u"spec"_s).toMap().value(u"title"_s).toString();
    QCOMPARE(title.size(), 100);
    QVERIFY(title.startsWith(u"Мой калькулятор x"_s));
    desk.call("selectTask", u"unknown"_s);
    QCOMPARE(desk.message(), u"Эта задача относится к другому проекту."_s);
    desk.call("archiveTask", task);
    desk.call("setPriority", u"calculator"_s, 2);
    QCOMPARE(desk.read("tasks").toList().size(), 0);
    QCOMPARE(desk.phase(), u"IDLE"_s);
    QVERIFY(desk.backend->search(u"Мой калькулятор"_s).contains(task));
}

void BackendTest::aRestartMarksWhatWasInterrupted()
{
    Desk desk;
    desk.createProject();
    desk.call("sendMessage", u"Создай калькулятор"_s);
    QVERIFY(desk.waitForPhase(u"CLARIFICATION"_s));
    desk.reopen();
    QCOMPARE(desk.phase(), u"INTERRUPTED"_s);
    QCOMPARE(desk.chat(u"report"_s).size(), 1);
    QVERIFY(desk.chat(u"report"_s).value(0).contains(u"Предыдущий сеанс был прерван."_s));
}

void BackendTest::refusalsAreTextsAndChangeNothing_data()
{
    QTest::addColumn<QByteArray>("operation");
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("text");
    const auto row = [](const char *operation, const QStringList &arguments, const QString &text) {
        QTest::addRow("%s: %s", operation, qPrintable(text)) << QByteArray(operation) << arguments << text;
    };
    row("createProject", {u"  "_s, u"/tmp"_s}, u"Укажите название проекта."_s);
    row("createProject", {u"Проба"_s, u""_s}, u"Workspace must be an absolute folder"_s);
    row("pinAsset", {u"нет.png"_s, u"Баннер"_s}, u"Ресурс не найден в проекте"_s);
    row("selectProject", {u"unknown"_s}, u"Проект не найден."_s);
    row("selectTask", {u"unknown"_s}, u"Эта задача относится к другому проекту."_s);
    row("renameTask", {u"unknown"_s, u"x"_s}, u"Диалог не найден."_s);
    row("archiveTask", {u"unknown"_s}, u"Диалог не найден."_s);
    row("rollback", {u"unknown"_s}, u"Checkpoint belongs to another project"_s);
    row("openFile", {u"../../etc/passwd"_s}, u"Unsafe path component"_s);
    row("addMemory", {u"Note"_s, u" \n"_s}, u"Введите текст для сохранения."_s);
    row("clarify", {u"да"_s}, u"Нет ожидающего уточнения."_s);
    row("pause", {}, u"No task to pause"_s);
    row("resume", {}, u"No task to resume"_s);
    row("runPreview", {}, u"No preview ready"_s);
    row("discuss", {u" "_s}, u"Введите сообщение."_s);
}

void BackendTest::refusalsAreTextsAndChangeNothing()
{
    QFETCH(QByteArray, operation);
    QFETCH(QStringList, arguments);
    QFETCH(QString, text);
    Desk desk;
    desk.createProject();
    const QVariant before = desk.read("chat");
    if (arguments.size() == 2)
        desk.call(operation.constData(), arguments[0], arguments[1]);
    else if (arguments.size() == 1)
        desk.call(operation.constData(), arguments[0]);
    else
        desk.call(operation.constData());
    QCOMPARE(desk.message(), text);
    QCOMPARE(desk.read("chat"), before);
    desk.call("setPreference", u"background_js"_s, QVariant(QString(32001, u'x')));
    QCOMPARE(desk.message(), u"Код фона слишком большой"_s);
    desk.call("setPreference", u"glass"_s, QVariant(false));
    QCOMPARE(desk.message(), QString());
    QCOMPARE(desk.read("preferences").toMap().value(u"glass"_s).toBool(), false);
}

void BackendTest::refreshesAreCoalesced()
{
    Desk desk;
    desk.createProject();
    QTest::qWait(60);
    QSignalSpy changes(desk.backend.get(), &Backend::changed);
    QSignalSpy chats(desk.backend.get(), &Backend::chatChanged);
    for (int i = 0; i < 20; ++i)
        desk.call("addMemory", u"Note"_s, u"text %1"_s.arg(i));
    QCOMPARE(changes.count(), 0);
    QTRY_COMPARE(changes.count(), 1);
    QCOMPARE(chats.count(), 1);
    QCOMPARE(desk.read("memory").toList().size(), 20);
}

void BackendTest::whatCannotBeReadIsEmptyAndToldUntilItCan()
{
    Desk desk;
    desk.createProject();
    desk.call("discuss", u"привет"_s);
    QTRY_VERIFY(!desk.read("chatBusy").toBool());
    QCOMPARE(desk.chat().size(), 2);
    desk.sql(u"ALTER TABLE messages RENAME TO gone"_s);
    desk.sql(u"ALTER TABLE file_revisions RENAME TO gone_too"_s);
    QCOMPARE(desk.backend->fileHistory(u"a"_s), QString());
    QVERIFY2(desk.message().contains(u"file_revisions"_s), qPrintable(desk.message()));
    // A transaction that fails makes the backend look at everything again.
    desk.sql(u"CREATE TRIGGER no BEFORE INSERT ON decision_logs BEGIN SELECT RAISE(FAIL, 'no'); END"_s);
    desk.call("addMemory", u"User Decisions"_s, u"text"_s);
    QCOMPARE(desk.chat(), QStringList());
    QVERIFY2(desk.message().contains(u"messages"_s), qPrintable(desk.message()));

    desk.sql(u"INSERT INTO gone SELECT 'new', task, body, updated FROM gone LIMIT 1"_s);
    desk.sql(u"ALTER TABLE gone RENAME TO messages"_s);
    QCOMPARE(desk.chat().size(), 3);
}

void BackendTest::whatCannotBeStoredNeitherThrowsNorStaysHalfDone()
{
    Desk desk;
    desk.createProject();
    desk.call("sendMessage", u"Создай калькулятор"_s);
    desk.call("start", u"Создай калькулятор ещё раз"_s, false, 5000, u""_s, u"[]"_s);
    const auto refuse = [&](const QString &table) {
        desk.sql(u"CREATE TRIGGER no_%1 BEFORE INSERT ON %1 BEGIN SELECT RAISE(FAIL, 'no %1'); END"_s.arg(table));
    };
    for (const QString &table : {u"settings"_s, u"messages"_s, u"memory_entries"_s, u"decision_logs"_s})
        refuse(table);
    const QVariant preferences = desk.read("preferences");
    const QVariant queue = desk.read("queue");
    desk.call("sendMessage", u"подключи mcp"_s);
    QVERIFY2(desk.message().contains(u"no messages"_s), qPrintable(desk.message()));
    desk.call("setPreference", u"glass"_s, QVariant(false));
    QVERIFY2(desk.message().contains(u"no settings"_s), qPrintable(desk.message()));
    desk.call("start", u"Создай калькулятор в третий раз"_s, false, 5000, u""_s, u"[]"_s);
    desk.call("cancelQueued", desk.read("queue").toList()[0].toMap().value(u"id"_s).toString());
    desk.sql(u"DROP TRIGGER no_memory_entries"_s);
    desk.call("addMemory", u"User Decisions"_s, u"text"_s);
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
}

void BackendTest::aProjectThatCannotBeReadIsNotSelected()
{
    Desk desk;
    desk.createProject(u"Первый"_s);
    desk.createProject(u"Второй"_s);
    const QString root = desk.read("root").toString();
    desk.sql(u"ALTER TABLE task_outlines RENAME TO gone"_s);
    desk.call("selectProject", desk.read("projects").toList()[0].toMap().value(u"id"_s).toString());
    QVERIFY(desk.message().contains(u"task_outlines"_s));
    QCOMPARE(desk.read("root").toString(), root);
    QCOMPARE(desk.read("projectName").toString(), u"Второй"_s);
}

QTEST_GUILESS_MAIN(BackendTest)
#include "tst_backend.moc"
