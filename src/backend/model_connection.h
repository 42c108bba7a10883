#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QString>

namespace vesk {

class Engine;
class OpenAICompatibleProvider;
class Store;

/// Which model answers: the demonstration, or the server that the user has connected (row "provider" of "settings").
class ModelConnection {
public:
    /// Restores the last connection; with one, the engine asks `client` from now on.
    ModelConnection(const Store &store, Engine &engine, OpenAICompatibleProvider &client);

    /// {"mock", "base_url", "model", "parallel"}, after a connection was made also "provider".
    const QJsonObject &settings() const { return document; }
    bool isDemo() const;
    /// Gives another provider the same connection, for the project in this folder.
    void configureClient(OpenAICompatibleProvider &target, const QString &projectRoot) const;

private:
    QJsonObject document;
    OpenAICompatibleProvider &client;
};

} // namespace vesk
