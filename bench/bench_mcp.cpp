// What a call of an MCP tool costs beside a bare client that does nothing but send and read JSON: over standard input
// and output, and over HTTP on this machine. With an argument it is the server itself.

#include "helpers.h"
#include "mcp_client.h"
#include "mcp_config.h"
#include "mcp_server.h"
#include "wire_server.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFileInfo>
#include <QNetworkReply>

#include <algorithm>
#include <ctime>
#include <functional>
#include <iostream>
#include <string>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

constexpr int calls = 2000;
constexpr int rounds = 3;

QByteArray answerTo(const QJsonObject &message)
{
    const bool lists = message["method"_L1].toString() == "tools/list"_L1;
    return R"({"id":)" + QByteArray::number(message["id"_L1].toInteger()) + R"(,"result":)"
        + (lists ? R"({"tools":[{"name":"echo"}]})" : R"({"content":[{"type":"text","text":"pong"}]})") + "}";
}

int serveLines()
{
    for (std::string line; std::getline(std::cin, line);) {
        const QJsonObject message = mcpMessage(QByteArray::fromStdString(line));
        if (message.contains("id"_L1))
            std::cout << answerTo(message).constData() << std::endl;
    }
    return 0;
}

int serveHttp()
{
    WireServer server([](const WireRequest &request) {
        const QJsonObject message = request.json();
        return message.contains("id"_L1) ? WireReply::document(200, answerTo(message))
                                         : WireReply::document(202, QByteArray());
    });
    std::cout << server.url().toStdString() << std::endl;
    return QCoreApplication::exec();
}

struct Cost {
    double wallUs = 0; ///< For a call.
    double cpuUs = 0; ///< Of this process, all threads.
};

/// The best of some rounds of calls, one after the other. `call` runs its argument when the answer is there.
Cost measure(const std::function<void(const std::function<void()> &)> &call)
{
    Cost best{1e9, 1e9};
    for (int round = 0; round < rounds; ++round) {
        QEventLoop loop;
        int left = calls;
        std::function<void()> next = [&] {
            if (left-- == 0)
                loop.quit();
            else
                call(next);
        };
        QElapsedTimer clock;
        const std::clock_t cpu = std::clock();
        clock.start();
        next();
        loop.exec();
        best.wallUs = std::min(best.wallUs, double(clock.nsecsElapsed()) / 1000 / calls);
        best.cpuUs = std::min(best.cpuUs, double(std::clock() - cpu) * 1e6 / CLOCKS_PER_SEC / calls);
    }
    return best;
}

Cost ofClient(const QJsonObject &config)
{
    McpClient client;
    client.add(u"bench"_s, config, {});
    const QString id = mcpServerId({}, u"bench"_s);
    QEventLoop loop;
    QObject::connect(&client, &McpClient::statusMessage, &loop, &QEventLoop::quit);
    client.connectServer(id);
    loop.exec();
    return measure([&](const std::function<void()> &next) {
        client.call(id, u"echo"_s, {{u"text"_s, u"ping"_s}}, [&](const QJsonObject &) { next(); });
    });
}

QByteArray request()
{
    return jsonBytes(
        {{u"jsonrpc"_s, u"2.0"_s}, {u"id"_s, 3}, {u"method"_s, u"tools/call"_s}, {u"params"_s, QJsonObject()}});
}

Cost ofBareLines(const QString &program)
{
    QProcess server;
    server.start(program, {u"--lines"_s});
    std::function<void()> waiting;
    QObject::connect(&server, &QProcess::readyReadStandardOutput, &server, [&] {
        if (server.canReadLine() && !mcpMessage(server.readLine()).isEmpty())
            waiting();
    });
    const Cost cost = measure([&](const std::function<void()> &next) {
        waiting = next;
        server.write(request() + '\n');
    });
    server.closeWriteChannel();
    server.waitForFinished();
    return cost;
}

Cost ofBareHttp(const QString &url)
{
    QNetworkAccessManager network;
    QNetworkRequest http{QUrl(url)};
    http.setHeader(QNetworkRequest::ContentTypeHeader, u"application/json"_s);
    return measure([&](const std::function<void()> &next) {
        QNetworkReply *reply = network.post(http, request());
        QObject::connect(reply, &QNetworkReply::finished, reply, [reply, next] {
            reply->deleteLater();
            if (!mcpMessage(reply->readAll()).isEmpty())
                next();
        });
    });
}

void print(const char *name, const Cost &ours, const Cost &bare)
{
    std::printf("%-8s call %7.1f us wall, %6.1f us processor; bare %7.1f us, %6.1f us; %.2f times\n", name, ours.wallUs,
                ours.cpuUs, bare.wallUs, bare.cpuUs, ours.wallUs / bare.wallUs);
}

} // namespace

int main(int count, char *arguments[])
{
    QCoreApplication application(count, arguments);
    const QString mode = QCoreApplication::arguments().value(1);
    if (mode == "--lines"_L1)
        return serveLines();
    if (mode == "--http"_L1)
        return serveHttp();

    ProcessContainment::useGuard(QStringLiteral(VESK_GUARD_PROGRAM));
    const QString self = QFileInfo(QCoreApplication::applicationFilePath()).absoluteFilePath();
    print("stdio", ofClient({{u"command"_s, self}, {u"args"_s, QJsonArray{u"--lines"_s}}}), ofBareLines(self));

    QProcess http;
    http.start(self, {u"--http"_s});
    http.waitForReadyRead();
    const QString url = QString::fromUtf8(http.readLine()).trimmed();
    print("http", ofClient({{u"url"_s, url}}), ofBareHttp(url));
    http.kill();
    http.waitForFinished();
    return 0;
}
