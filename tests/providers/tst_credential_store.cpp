#include "keyring_session.h"

#include <QDir>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <sys/stat.h>

using namespace Qt::StringLiterals;
using Person = KeyringSession::Person;

namespace {

constexpr auto key = "sk-test-0123456789";
constexpr int runLimitMs = 30000;

/// key-tool at work in the environment of a session.
class Tool {
public:
    Tool(const KeyringSession &session, const QStringList &operations)
    {
        process.setProcessEnvironment(session.environment);
        process.start(KEY_TOOL_PROGRAM, QStringList{session.dataFolder()} + operations);
    }

    /// The line of the next operation, empty when none comes.
    QJsonObject next()
    {
        QElapsedTimer timer;
        timer.start();
        while (!process.canReadLine() && timer.elapsed() < runLimitMs) {
            if (!process.waitForReadyRead(runLimitMs))
                break;
        }
        return QJsonDocument::fromJson(process.readLine()).object();
    }

    void goOn() { process.write("\n"); }

    bool ends()
    {
        return process.waitForFinished(runLimitMs) && process.exitStatus() == QProcess::NormalExit
            && process.exitCode() == 0;
    }

    ~Tool()
    {
        process.kill();
        process.waitForFinished();
    }

    QByteArray log() { return process.readAllStandardError(); }

private:
    QProcess process;
};

struct Outcome {
    QVariantList results;
    QList<int> ms;
    QByteArray log;
};

/// Runs the operations in one process to their end.
Outcome run(const KeyringSession &session, const QStringList &operations)
{
    Tool tool(session, operations);
    Outcome outcome;
    if (!tool.ends()) {
        qWarning("%s", tool.log().constData());
        return outcome;
    }
    for (QJsonObject line = tool.next(); !line.isEmpty(); line = tool.next()) {
        outcome.results.append(line["result"].toVariant());
        outcome.ms.append(line["ms"].toInt());
    }
    outcome.log = tool.log();
    return outcome;
}

QVariantList results(const KeyringSession &session, const QStringList &operations)
{
    return run(session, operations).results;
}

} // namespace

class CredentialStoreTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        const QString missing = KeyringSession::missingProgram();
        if (!missing.isEmpty())
            QSKIP(qPrintable(missing + " is not installed"));
    }

    void init() { session = std::make_unique<KeyringSession>(); }
    void cleanup() { session.reset(); }

    void aKeyComesBackExactly()
    {
        QVERIFY(startSession());
        for (const QString &secret :
             {u"sk-test-0123456789"_s, u""_s, u"пароль-Ё-🔑 'b\" c\n\td\\ "_s, QString(50000, 'x')}) {
            QCOMPARE(results(*session, {"save", "VESK:1", secret}), QVariantList{true});
            const Outcome read = run(*session, {"read", "VESK:1", "ask", "VESK:1", "1000", "ask", "VESK:2", "1000"});
            QCOMPARE(read.results, QVariantList({secret, "Done", "Missing"}));
            QCOMPARE(read.log, QByteArray());
        }
        QVERIFY(!QFile::exists(session->keyFile()));
    }

    void aKeyIsReplacedAndRemoved()
    {
        QVERIFY(startSession());
        QCOMPARE(results(*session, {"save", "a", "first", "save", "b", "other", "save", "a", "second", "read", "a"}),
                 QVariantList({true, true, true, "second"}));
        QCOMPARE(results(*session, {"remove", "a", "read", "a", "remove", "a", "read", "b"}),
                 QVariantList({true, "", true, "other"}));
    }

    void whoDeclinesToMakeAKeyringHasNoKeySaved()
    {
        QVERIFY(session->startBus());
        QVERIFY(session->seat(Person::Declining));
        QVERIFY(session->startLockedKeyring());

        const Outcome outcome = run(*session, {"save", "a", key, "read", "a"});

        QCOMPARE(outcome.results, QVariantList({false, ""}));
        QVERIFY2(outcome.log.contains("не создаёт связку ключей"), outcome.log);
        QVERIFY(!QFile::exists(session->keyFile()));
    }

    void aLockedKeyringIsNotTakenForOneWithoutTheKey()
    {
        lockKey(Person::Nobody);

        const Outcome locked
            = run(*session, {"ask", "a", "60000", "read", "a", "save", "a", "new", "remove", "a", "remove", "b"});

        QCOMPARE(locked.results, QVariantList({"Locked", "", false, false, false}));
        QVERIFY(locked.log.contains("связка ключей заблокирована"));
        for (const int ms : locked.ms)
            QVERIFY2(ms < 3000, qPrintable(QString::number(ms)));
        QVERIFY(!QFile::exists(session->keyFile()));
    }

    void whoDeclinesIsNotAskedAgainForReading()
    {
        lockKey(Person::DecliningAtFirst);
        // The person would give the password on being asked a second time.
        QCOMPARE(results(*session, {"read", "a", "read", "a", "save", "b", "other", "read", "a"}),
                 QVariantList({"", "", true, key}));
    }

    void aPersonIsWaitedForOnlyWhereThereIsADisplay()
    {
        lockKey(Person::Absent);

        const Outcome without = run(*session, {"ask", "a", "2000"});
        session->environment.insert("DISPLAY", ":99");
        const Outcome with = run(*session, {"ask", "a", "2000"});

        QCOMPARE(without.results, QVariantList{"Locked"});
        QCOMPARE_GE(without.ms.first(), 2500);
        QCOMPARE_LT(without.ms.first(), 4500);
        QCOMPARE(with.results, QVariantList{"Locked"});
        QCOMPARE_GE(with.ms.first(), 4500);
        QCOMPARE_LT(with.ms.first(), 7000);
    }

    void aLateAnswerOfThePersonCountsForTheNextReading()
    {
        lockKey(Person::Slow);
        constexpr int readings = 100;
        QStringList operations{"save", "a", "new"};
        for (int i = 0; i < readings; ++i)
            operations += {"pause", "read", "a"};
        Tool tool(*session, operations);
        QCOMPARE(tool.next()["result"].toBool(true), false);
        QString read;
        for (int i = 0; i < readings && read.isEmpty(); ++i) {
            QTest::qWait(100);
            tool.goOn();
            tool.next();
            const QJsonObject line = tool.next();
            read = line["result"].toString();
            QCOMPARE_LT(line["ms"].toInt(), 1000);
        }
        // What was told to have failed isn't done later on.
        QCOMPARE(read, key);
    }

    void aKeyringThatHangsCostsThreeSecondsOnce()
    {
        QVERIFY(startSession());
        QCOMPARE(results(*session, {"save", "a", key}), QVariantList{true});
        session->hangKeyring();
        Tool tool(*session, {"read", "a", "read", "a", "save", "a", "new", "pause", "read", "a"});

        const QJsonObject first = tool.next();
        QCOMPARE(first["result"].toString(), "");
        QCOMPARE_GE(first["ms"].toInt(), 2500);
        QCOMPARE_LT(first["ms"].toInt(), 4500);
        const QJsonObject second = tool.next();
        QCOMPARE(second["result"].toString(), "");
        QCOMPARE_LT(second["ms"].toInt(), 1500);
        QCOMPARE(tool.next()["result"].toBool(true), false);

        session->resumeKeyring();
        tool.goOn();
        tool.next();
        QCOMPARE(tool.next()["result"].toString(), key);
        QVERIFY(tool.ends());
        QVERIFY(tool.log().contains("не отвечает"));
        QVERIFY(!QFile::exists(session->keyFile()));
    }

    void theEndOfTheBusIsNotTheEndOfTheProgram()
    {
        QVERIFY(startSession());
        Tool tool(*session, {"save", "a", key, "pause", "read", "a"});
        QCOMPARE(tool.next()["result"].toBool(), true);

        session->endBus();
        tool.goOn();
        tool.next();

        QCOMPARE(tool.next()["result"].toString(), "");
        QVERIFY(tool.ends());
    }

    void withoutAServiceTheFileIsUsed()
    {
        for (const QString &address : {u"disabled:"_s, u"autolaunch:"_s, u"unix:path=/nonexistent/bus"_s, u"bus"_s}) {
            init();
            session->environment.insert("DBUS_SESSION_BUS_ADDRESS", address);
            if (address == "bus") // one without the service
                QVERIFY(session->startBus());
            const Outcome saved = run(*session, {"save", "a", "ключ", "save", "b", key, "read", "b", "remove", "c"});
            const Outcome read = run(*session, {"read", "a", "remove", "a", "read", "a", "read", "b"});

            QCOMPARE(saved.results, QVariantList({true, true, key, true}));
            QCOMPARE(read.results, QVariantList({"ключ", true, "", key}));
            for (const Outcome *outcome : {&saved, &read}) {
                QCOMPARE(outcome->log.count('\n'), 1);
                QVERIFY2(outcome->log.contains(session->keyFile().toUtf8()), outcome->log);
                QVERIFY(!outcome->log.contains(key));
            }
            QCOMPARE(QFile::permissions(session->keyFile()),
                     QFile::ReadOwner | QFile::WriteOwner | QFile::ReadUser | QFile::WriteUser);
        }
    }

    void withoutLibsecretTheFileIsUsed()
    {
        QVERIFY(startSession());
        // The first that is found, and none that can be loaded.
        const QString folder = session->dataFolder() + "-libraries";
        QVERIFY(QDir().mkpath(folder));
        QFile library(folder + "/libsecret-1.so.0");
        QVERIFY(library.open(QFile::WriteOnly));
        session->environment.insert("LD_LIBRARY_PATH", folder);

        const Outcome outcome = run(*session, {"save", "a", key, "read", "a"});

        QCOMPARE(outcome.results, QVariantList({true, key}));
        QVERIFY2(outcome.log.contains("libsecret не установлена"), outcome.log);
        QVERIFY(QFile::exists(session->keyFile()));
    }

    void aKeyMovesFromTheFileToTheService()
    {
        // Only where the file may be used at all.
        session->environment.insert("VESK_SECRETS", "service");
        QCOMPARE(results(*session, {"save", "a", key, "read", "a", "remove", "a"}), QVariantList({false, "", false}));
        QVERIFY(!QDir(session->dataFolder()).exists());
        session->environment.insert("VESK_SECRETS", "file");
        QCOMPARE(results(*session, {"save", "a", key, "save", "b", "other", "save", "c", key}),
                 QVariantList({true, true, true}));

        QVERIFY(startSession());
        session->environment.remove("VESK_SECRETS");
        QCOMPARE(results(*session, {"read", "a", "save", "a", "new", "read", "a", "remove", "c", "read", "c"}),
                 QVariantList({key, true, "new", true, ""}));
        session->environment.insert("VESK_SECRETS", "file");
        QCOMPARE(results(*session, {"read", "a", "read", "b", "read", "c"}), QVariantList({"", "other", ""}));
    }

    void aRefusedFileGivesNoKeyAndTellsWhy()
    {
        QCOMPARE(results(*session, {"save", "a", key}), QVariantList{true});
        QCOMPARE(::chmod(session->keyFile().toLocal8Bit().constData(), 0644), 0);

        const Outcome outcome = run(*session, {"read", "a", "save", "a", "new", "remove", "a"});

        QCOMPARE(outcome.results, QVariantList({"", false, false}));
        QCOMPARE(outcome.log.count("0600"), 3);
        QVERIFY(!outcome.log.contains(key));
    }

    void processesThatSaveAtOnceLoseNothing()
    {
        session->environment.insert("VESK_SECRETS", "file");
        const QString large(20000, 'x');
        QCOMPARE(results(*session, {"save", "a", large}), QVariantList{true});
        std::vector<std::unique_ptr<Tool>> tools;
        for (int i = 0; i < 4; ++i)
            tools.push_back(std::make_unique<Tool>(*session, QStringList{"fill", QString("p%1-").arg(i), "25"}));

        // A reader sees the file whole meanwhile.
        QStringList reading;
        for (int i = 0; i < 200; ++i)
            reading += {"read", "a"};
        QCOMPARE(results(*session, reading), QVariantList(200, large));
        for (const std::unique_ptr<Tool> &tool : tools) {
            QCOMPARE(tool->next()["result"].toBool(), true);
            QVERIFY(tool->ends());
        }

        reading.clear();
        QVariantList expected;
        for (int i = 0; i < 100; ++i) {
            expected.append(QString("p%1-%2").arg(i / 25).arg(i % 25));
            reading += {"read", expected.last().toString()};
        }
        QCOMPARE(results(*session, reading), expected);
    }

    void nothingOfAKeyStaysInMemory()
    {
#ifdef __SANITIZE_ADDRESS__
        QSKIP("The memory that the address checks keep is too much to be searched.");
#endif
        QVERIFY(startSession());
        QString longKey = "sk-";
        for (int i = 0; i < 40; ++i)
            longKey += QString::number(1000 + i * i);
        for (const QString &place : {u"file"_s, u"service"_s}) {
            session->environment.insert("VESK_SECRETS", place);
            QCOMPARE(results(*session, {"save", "a", longKey}), QVariantList{true});
            QCOMPARE(results(*session, {"traces", "a"}), QVariantList{0});
        }
    }

private:
    bool startSession() { return session->startBus() && session->startUnlockedKeyring(); }

    /// A key is saved, and then the keyring is locked and somebody is at the machine.
    void lockKey(Person person)
    {
        QVERIFY(startSession());
        QCOMPARE(results(*session, {"save", "a", key}), QVariantList{true});
        session->endKeyring();
        QVERIFY(session->seat(person));
        QVERIFY(session->startLockedKeyring());
    }

    std::unique_ptr<KeyringSession> session;
};

QTEST_GUILESS_MAIN(CredentialStoreTest)
#include "tst_credential_store.moc"
