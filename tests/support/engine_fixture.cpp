#include "engine_fixture.h"

#include <QDeadlineTimer>
#include <QEventLoop>
#include <QFile>

using namespace Qt::StringLiterals;
using namespace vesk;

bool EngineFixture::runUntil(const std::function<bool()> &condition, int timeoutMs)
{
    QEventLoop loop;
    QDeadlineTimer deadline(timeoutMs);
    while (!condition() && !deadline.hasExpired()) {
        // A timer wakes the loop, so that a run that stands still is noticed.
        QTimer::singleShot(20, &loop, &QEventLoop::quit);
        loop.processEvents(QEventLoop::WaitForMoreEvents);
    }
    return condition();
}

QJsonObject EngineFixture::node(const QString &id) const
{
    const QJsonArray nodes = state(u"graph"_s).toArray();
    for (const QJsonValue &node : nodes) {
        if (node["id"_L1].toString() == id)
            return node.toObject();
    }
    return {};
}

QStringList EngineFixture::messages(const QString &type) const
{
    QStringList list;
    for (const QJsonObject &event : log) {
        if (event["type"_L1].toString() == type)
            list.append(event["message"_L1].toString());
    }
    return list;
}

QList<QJsonObject> EngineFixture::eventsOf(const QString &type) const
{
    QList<QJsonObject> list;
    for (const QJsonObject &event : log) {
        if (event["type"_L1].toString() == type)
            list.append(event);
    }
    return list;
}

QByteArray EngineFixture::fileContent(const QString &path) const
{
    QFile file(projectFile(path));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString EngineFixture::errorOf(const std::function<void()> &work)
{
    try {
        work();
    } catch (const std::exception &error) {
        return textOf(error);
    }
    return {};
}
