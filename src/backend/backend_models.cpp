// The doors to the model connections: each operation of the interface goes to ModelConnection, and its refusal into
// `message`.

#include "backend.h"

using namespace Qt::StringLiterals;

namespace vesk {

void Backend::saveSettings(bool useMock, const QString &url, const QString &model, const QString &key, int parallel)
{
    guard([&] { connection.saveSettings(useMock, url, model, key, parallel); });
}

void Backend::connectProvider(const QString &provider, const QString &model, const QString &key)
{
    guard([&] { connection.connectProvider(provider, model, key); });
}

void Backend::connectQwen(const QString &key)
{
    guard([&] { connection.connectQwen(key); });
}

void Backend::testConnection()
{
    guard([this] { connection.testConnection(); });
}

void Backend::loadModels(const QString &provider, const QString &key, const QString &agent)
{
    guard([&] { connection.loadModels(provider, key, agent); });
}

void Backend::forgetProvider(const QString &provider)
{
    guard([&] { connection.forgetProvider(provider); });
}

void Backend::forgetServer(const QString &url)
{
    guard([&] { connection.forgetServer(url); });
}

void Backend::setAgentApi(const QString &agent, const QString &provider, const QString &model, const QString &key)
{
    guard([&] { connection.setAgentApi(agent, provider, model, key); });
}

void Backend::useDemonstration()
{
    guard([this] { connection.useDemonstration(); });
}

void Backend::findServers()
{
    guard([this] { connection.findServers(); });
}

void Backend::loadServerModels(const QString &url, const QString &key, const QString &agent)
{
    guard([&] { connection.loadServerModels(url, key, agent); });
}

void Backend::connectServer(const QString &url, const QString &model, const QString &key, const QString &agent)
{
    guard([&] { connection.connectServer(url, model, key, agent); });
}

void Backend::measureConnection()
{
    guard([this] { connection.measureConnection(); });
}

void Backend::stopCheck()
{
    guard([this] { connection.stopCheck(); });
}

} // namespace vesk
