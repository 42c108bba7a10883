#include "backend_desk.h"
#include "engine.h"
#include "files.h"
#include "json_text.h"
#include "mcp_script.h"
#include "openai_provider.h"
#include "process_containment.h"
#include "programs.h"

#include <QCoreApplication>
#include <QDir>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

/// Names servers in a file.
void describe(const QString &file, const QStringList &names)
{
    QJsonObject servers;
    for (const QString &name : names)
        servers[name] = mcpProgram(u"cat"_s);
    save(file, jsonBytes({{u"mcpServers"_s, servers}}));
}

QString statuses(const Desk &desk)
{
    QStringList all;
    const QVariantList servers = desk.read("mcpServers").toList();
    for (const QVariant &server : servers)
        all.append(server.toMap().value(u"name"_s).toString() + u' ' + server.toMap().value(u"status"_s).toString());
    return all.join(u", "_s);
}

void begin(Desk &desk, const QString &request)
{
    desk.call("start", {request, false, 5000, u""_s, u"[]"_s});
}

} // namespace

class RuntimeTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { ProcessContainment::useGuard(QStringLiteral(VESK_GUARD_PROGRAM)); }

    void aRunIsToldWhatThisComputerHas()
    {
        Desk desk(u"Проба"_s);
        const QString tool = desk.path(u"blender"_s);
        save(tool, "#!/bin/sh\n");
        QFile::setPermissions(tool, QFile::ReadOwner | QFile::ExeOwner);
        const QByteArray path = qgetenv("PATH");
        qputenv("PATH", desk.folder.path().toUtf8() + ':' + path);
        desk.call("setPreference", {u"ffmpeg_path"_s, tool});
        desk.call("setPreference", {u"blender_path"_s, u"/no/such"_s});
        begin(desk, u"Создай калькулятор"_s);
        const QJsonObject tools = desk.backend->runner().mediaTools;
        qputenv("PATH", path);
        QCOMPARE(tools.keys().join(u' '),
                 u"blender browser browser_worker computer_access ffmpeg operations "
                 "project_assets search_roots worker workspace"_s);
        QCOMPARE(fields(tools, u"browser computer_access ffmpeg blender workspace"_s),
                 QStringList({browserProgram(), u"true"_s, tool, tool, desk.backend->root()}).join(u' '));
        QCOMPARE(tools["worker"_L1].toString(), QCoreApplication::applicationFilePath());
        QCOMPARE(tools["search_roots"_L1][2].toString(), QDir::homePath() + u"/Documents"_s);
    }

    void aRequestCallsUpTheServersThatItNames_data()
    {
        QTest::addColumn<QString>("request");
        QTest::addColumn<bool>("access");
        QTest::addColumn<QString>("after");
        QTest::newRow("one") << u"Создай калькулятор, спроси Альфу: АЛЬФА"_s << true
                             << u"Альфа Подключён, Бета Доступен"_s;
        QTest::newRow("all") << u"Создай калькулятор через MCP"_s << true << u"Альфа Подключён, Бета Подключён"_s;
        QTest::newRow("none without access") << u"Создай калькулятор через MCP"_s << false << u""_s;
    }
    void aRequestCallsUpTheServersThatItNames()
    {
        QFETCH(QString, after);
        Desk desk(u"Проба"_s);
        QTRY_COMPARE(statuses(desk), QString()); // Has looked, at its start.
        QFETCH(bool, access);
        desk.call("setPreference", {u"computer_access"_s, access});
        describe(QDir::homePath() + u"/.mcp.json"_s, {u"Бета"_s, u"Альфа"_s});
        QFETCH(QString, request);
        begin(desk, request);
        QTRY_COMPARE(statuses(desk), after);
        desk.call("stop");
        QCOMPARE(statuses(desk).count(u"Отключён"_s), after.isEmpty() ? 0 : 2);
    }

    void aServerOfTheProjectWaitsForAYesThatIsKept()
    {
        Desk desk(u"Проба"_s);
        describe(desk.backend->root() + u"/.mcp.json"_s, {u"Здесь"_s});
        begin(desk, u"Создай калькулятор через MCP"_s);
        QCOMPARE(statuses(desk), u"Здесь Доступен"_s);
        const QVariantMap asked = desk.read("mcpRequests").toList().value(0).toMap();
        QCOMPARE(asked.value(u"program"_s), u"sh"_s);
        desk.sql(u"ALTER TABLE mcp_servers RENAME TO gone"_s);
        desk.call("allowMcp", {asked.value(u"id"_s), true});
        QVERIFY2(desk.message().contains(u"mcp_servers"_s), qPrintable(desk.message()));
        QCOMPARE(statuses(desk), u"Здесь Доступен"_s);
        desk.sql(u"ALTER TABLE gone RENAME TO mcp_servers"_s);
        desk.call("allowMcp", {asked.value(u"id"_s), true});
        QTRY_COMPARE(statuses(desk), u"Здесь Подключён"_s);
        QVERIFY(desk.read("mcpRequests").toList().isEmpty());

        desk.reopen();
        desk.call("discoverMcp");
        desk.call("connectMcp", {asked.value(u"id"_s)});
        QTRY_COMPARE(statuses(desk), u"Здесь Подключён"_s);
    }

    void agentsOfTheirOwnConnectionGetProvidersForEachRun()
    {
        Desk desk(u"Проба"_s);
        desk.sql(
            u"INSERT INTO settings VALUES ('workspace-ui', '', '{\"agent_api\":{\"coding\":{\"provider\":\"OpenAI\","
            "\"url\":\"https://127.0.0.1:1/v1\",\"model\":\"m\"}}}', '')"_s);
        desk.reopen();
        for (int run = 0; run < 2; ++run) {
            begin(desk, u"Создай калькулятор"_s);
            const auto providers = desk.backend->runner().agentProviders;
            QCOMPARE(providers.keys(), QList<QString>{u"coding"_s});
            QCOMPARE(desk.backend->findChildren<OpenAICompatibleProvider *>(Qt::FindDirectChildrenOnly).size(), 1);
            const auto *own = static_cast<OpenAICompatibleProvider *>(providers[u"coding"_s]);
            QCOMPARE(own->url + own->model + own->root, u"https://127.0.0.1:1/v1m"_s + desk.backend->root());
            QVERIFY(own->useResponses && own->timeoutMs == 180000);
            desk.call("stop");
        }
    }
};

QTEST_GUILESS_MAIN(RuntimeTest)
#include "tst_runtime.moc"
