// What the operations make of input that no one should give: nothing escapes into the script, a refusal is a text that
// changes nothing, and what was taken is the same after a restart.

#include "backend_desk.h"
#include "files.h"
#include "helpers.h"
#include "json_text.h"
#include "mock_provider.h"
#include "model_server.h"

#include <QDir>
#include <QJsonArray>
#include <QMetaMethod>
#include <QTest>

#include <limits>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

/// Texts that have no business anywhere.
const QStringList &hostileTexts()
{
    static const QStringList texts{
        QString(),
        u" \t\r\n\u00a0"_s,
        QString(1 << 20, u'я'),
        u"a"_s + QChar(0) + u"b\x01\x1b[31m\x7f"_s,
        QString(QChar(0xd83d)) + u"x"_s + QChar(0xde00),
        QString(QChar(0xfffe)) + QChar(0xffff) + u"\u2028\u2029"_s,
        u"<b onclick=\"x()\">calc</b><img src=x onerror=alert(1)>&amp;"_s,
        u"'; DROP TABLE tasks; --"_s,
        u"../../etc/passwd"_s,
        u"file:///dev/null/%00%zz"_s,
        u"new"_s,
        u"продолжай"_s,
        QString(2000, u'['),
    };
    return texts;
}

/// Arguments for a method: everything that is a text is this text.
QVariantList argumentsOf(const QMetaMethod &method, const QString &text, bool other)
{
    QVariantList arguments;
    for (int i = 0; i < method.parameterCount(); ++i) {
        const QMetaType type = method.parameterMetaType(i);
        if (type == QMetaType::fromType<int>())
            arguments.append(other ? std::numeric_limits<int>::max() : std::numeric_limits<int>::min());
        else if (type == QMetaType::fromType<double>())
            arguments.append(other ? qQNaN() : -qInf());
        else if (type == QMetaType::fromType<bool>())
            arguments.append(other);
        else
            arguments.append(text);
    }
    return arguments;
}

/// A project with a task that was stopped; gives the task.
QString stoppedTask(Desk &desk, const QString &project)
{
    desk.createProject(project);
    desk.call("sendMessage", {u"Создай калькулятор "_s + project});
    desk.call("stop");
    return desk.read("state").toMap().value(u"id"_s).toString();
}

} // namespace

class BackendInputTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void everyOperationTakesEveryText_data()
    {
        QTest::addColumn<QString>("situation");
        for (const QString &situation : {u"no project"_s, u"a project"_s, u"a question"_s, u"a chat"_s})
            QTest::addRow("%s", qPrintable(situation)) << situation;
    }

    void everyOperationTakesEveryText()
    {
        QFETCH(QString, situation);
        ModelServer server([](const LLMRequest &request) { return json(MockProvider::respond(request)); });
        Desk desk;
        if (situation == "a question"_L1)
            desk.connectTo(server.url());
        if (situation != "no project"_L1)
            desk.createProject();
        const QMetaObject &meta = Backend::staticMetaObject;
        bool other = false;
        // Each question takes a run of its own.
        const QStringList texts = situation == "a question"_L1 ? hostileTexts().first(6) : hostileTexts();
        for (const QString &text : texts) {
            for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
                const QMetaMethod method = meta.method(i);
                if (method.methodType() != QMetaMethod::Method)
                    continue;
                if (situation == "a question"_L1 && desk.phase() != "CLARIFICATION"_L1) {
                    desk.call("stop");
                    desk.emptyQueue();
                    desk.call("sendMessage", {u"Создай calc"_s});
                    QVERIFY(desk.waitForPhase(u"CLARIFICATION"_s));
                } else if (situation == "a chat"_L1 && !desk.busy()) {
                    desk.call("stop");
                    desk.call("discuss", {u"привет"_s});
                    QVERIFY(desk.busy());
                }
                other = !other;
                const QVariant before = desk.sql(u"PRAGMA data_version"_s);
                const QVariantList arguments = argumentsOf(method, text, other);
                desk.call(method.name(), arguments);
                const QString what
                    = QString::fromLatin1(method.name()) + u'(' + text.left(40).toHtmlEscaped() + u"): "_s;
                QVERIFY2(desk.thrown.isEmpty(), qPrintable(what + desk.thrown));
                const QString message = desk.message();
                QVERIFY2(message.isEmpty() || desk.sql(u"PRAGMA data_version"_s) == before, qPrintable(what + message));
            }
        }
        desk.call("stop");
        const QVariantMap before = desk.lasting();
        desk.reopen();
        const QVariantMap after = desk.lasting();
        for (auto property = before.cbegin(); property != before.cend(); ++property)
            QVERIFY2(after[property.key()] == property.value(), qPrintable(property.key()));
    }

    void preferencesKeepWhatAScriptSets()
    {
        struct Row {
            QString key;
            QString expression;
            QJsonValue value = QJsonValue::Null;
        };
        const QString places = u"agent_positions"_s;
        const QString width = u"sidebar_width"_s;
        // What has another type than its reader expects is kept as it is; the reader falls back to its default.
        const QList<Row> rows{
            {places, u"{chief: {x: 1, y: 2.5}, ключ: [1, {}]}"_s, object(u"{'chief':{'x':1,'y':2.5},'ключ':[1,{}]}"_s)},
            {places, u"undefined"_s},
            {width, u"NaN"_s},
            {width, u"{a: 1}"_s, object(u"{'a':1}"_s)},
            {u"ffmpeg_path"_s, u"'a\\0\\ud83d'"_s, QString(u"a"_s + QChar(0) + QChar(0xd83d))},
            {u"background_js"_s, u"'й'.repeat(32000)"_s, QString(32000, u'й')}};
        for (const auto &[key, expression, value] : rows) {
            Desk desk;
            for (const bool restarted : {false, true}) {
                if (restarted)
                    desk.reopen();
                else
                    desk.callWith("setPreference", {key}, expression);
                QCOMPARE(desk.thrown + desk.message(), QString());
                const QJsonValue kept = QJsonValue::fromVariant(desk.read("preferences").toMap().value(key));
                QVERIFY2(kept == value, qPrintable(key + u": "_s + expression));
            }
        }
    }

    void whatBelongsToAnotherProjectIsRefused()
    {
        Desk desk;
        const QString task = stoppedTask(desk, u"Первый"_s);
        desk.sql(
            u"INSERT INTO checkpoints SELECT 'mark', project.id, '{\"id\":\"mark\",\"project_id\":\"' || project.id || "
            "'\",\"files\":[]}', '' FROM projects AS project"_s);
        stoppedTask(desk, u"Второй"_s);
        const QVariantMap before = desk.lasting();
        for (const auto &[operation, arguments, text] :
             std::initializer_list<std::tuple<QByteArray, QVariantList, QString>>{
                 {"selectTask", {task}, u"Эта задача относится к другому проекту."_s},
                 {"renameTask", {task, u"Чужой"_s}, u"Диалог не найден."_s},
                 {"archiveTask", {task}, u"Диалог не найден."_s},
                 {"rollback", {u"mark"_s}, u"Checkpoint belongs to another project"_s}}) {
            desk.call(operation, arguments);
            QCOMPARE(desk.message(), text);
            QCOMPARE(desk.lasting(), before);
        }
    }

    void nothingOfAProjectIsSeenFromAnother()
    {
        Desk desk;
        const QString task = stoppedTask(desk, u"Первый"_s);
        const QVariantList chat = desk.read("chat").toList();
        desk.createProject(u"Второй"_s);
        QVERIFY(!desk.read("state").toMap().contains(u"id"_s));
        for (const char *list : {"chat", "tasks", "events", "memory", "files", "checkpoints"})
            QVERIFY2(desk.read(list).toList().isEmpty(), list);
        desk.call("selectProject", {desk.read("projects").toList()[0].toMap().value(u"id"_s)});
        QCOMPARE(desk.read("state").toMap().value(u"id"_s).toString(), task);
        QCOMPARE(desk.read("chat").toList(), chat);
    }

    void aLostProjectFolderIsToldAndHidesTheProject()
    {
        Desk desk(u"Проба"_s);
        desk.call("addMemory", {u"Note"_s, u"тайна"_s});
        desk.sql(
            u"INSERT INTO file_revisions SELECT 'r', id, '{\"path\":\"a\",\"content\":\"тайна\"}', '' FROM projects"_s);
        const QString root = desk.read("root").toString();
        QVERIFY(QDir(root).removeRecursively());
        save(root, {});
        desk.reopen();
        QCOMPARE(desk.message(), u"Cannot create workspace"_s);
        QCOMPARE(desk.read("root").toString(), QString());
        QVERIFY(!desk.call("fileHistory", {u"a"_s}).toString().contains(u"тайна"_s));
    }
};

QTEST_GUILESS_MAIN(BackendInputTest)
#include "tst_backend_input.moc"
