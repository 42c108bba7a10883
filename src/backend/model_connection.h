#pragma once

#include "connection_measure.h"
#include "model_catalog.h"
#include "openai_provider.h"
#include "server_finder.h"

#include <QHash>
#include <QJsonObject>
#include <QMap>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>

#include <functional>

namespace vesk {

class Conversation;
class Engine;
class MockProvider;
class Preferences;
class Store;

/// Which model answers: the demonstration, or a server that the user has connected, for the whole team (row "provider"
/// of "settings") or for one agent ("agent_api" of the preferences). A connection by the name of a provider, and one to
/// a server of the user's own, is made only once that has answered in the agents' format.
///
/// Keys go to the CredentialStore and to the providers, and nowhere else. Operations throw what refuses them, before
/// anything has changed; what becomes of a check stands in status() when it is over.
class ModelConnection : public QObject {
    Q_OBJECT
public:
    /// Restores the last connection; with one, the engine asks `client` from now on.
    ModelConnection(Store &store, Engine &engine, MockProvider &mock, OpenAICompatibleProvider &client,
                    Preferences &preferences, Conversation &conversation);

    /// {"mock", "base_url", "model", "parallel"}, after a connection was made by name also "provider".
    const QJsonObject &settings() const { return document; }
    bool isDemo() const;
    /// A check is in flight.
    bool isTesting() const { return testing; }
    /// The one line about connections.
    const QString &status() const { return apiStatus; }
    const ModelCatalog &catalog() const { return modelCatalog; }

    /// Gives another provider the same connection, for the project in this folder.
    void configureClient(OpenAICompatibleProvider &target, const QString &projectRoot) const;
    /// Gives a provider the connection of an agent of its own, an entry {"provider", "url", "model"} of "agent_api",
    /// with the agent's key.
    void configureAgentClient(OpenAICompatibleProvider &target, const QString &agent, const QJsonObject &entry,
                              const QString &projectRoot) const;

    /// Providers of the agents with a connection of their own, by agent. Those that prepare a run fill it.
    QMap<QString, OpenAICompatibleProvider *> agentClients;

    // Connections by address or name

    /// Connects without a check. `parallel` is eight, whatever is given. An empty key leaves the stored one.
    void saveSettings(bool useMock, const QString &url, const QString &model, const QString &key, int parallel);
    void connectProvider(const QString &provider, const QString &model, const QString &key);
    void connectQwen(const QString &key);
    void testConnection();
    void loadModels(const QString &provider, const QString &key, const QString &agent);
    void forgetProvider(const QString &provider);
    /// The same for a server of the user's own.
    void forgetServer(const QString &typedUrl);
    /// An empty provider takes the agent back to the model of the team.
    void setAgentApi(const QString &agent, const QString &provider, const QString &model, const QString &key);
    /// Back to the demonstration; keys stay where they are.
    void useDemonstration();

    // Servers of the user's own

    void findServers();
    const ServerFinder &finder() const { return serverFinder; }
    /// The line about finding and connecting a server.
    const QString &serverStatus() const { return serverLine; }
    void loadServerModels(const QString &typedUrl, const QString &key, const QString &agent);
    void connectServer(const QString &typedUrl, const QString &model, const QString &key, const QString &agent);

    /// testConnection(), and of a server of the user's own also what the pipeline needs of it.
    void measureConnection();
    bool isMeasuring() const { return measure.isRunning() || measuresAfterTest; }
    /// What is known of the team's server, see measureRows().
    QVariantList measures() const;
    /// That the window of the team's model is too small for a plan, and what to do; empty when it isn't.
    QString windowWarning() const;

    /// Ends what is in flight: the search, the catalogue, the check, the measuring. False when there is nothing.
    bool stopCheck();
    /// The same for a stop of everything, with its own line.
    void stopAll();

Q_SIGNALS:
    void changed();
    /// The outcome of a check, empty when all is well: the interface's line of the last failure.
    void concluded(const QString &failure);

private:
    /// Where an agent's, or without one the team's, connection is to lead.
    struct Target {
        QString agent;
        QString provider;
        QString url;
        QString model;
        QString key;
    };

    void begin(const QString &line);
    void say(const QString &line);
    void forgetKeyOf(const std::function<QString()> &address);
    void endCheck();
    void giveUpCheck();
    void endAgentProbe();
    void stopMeasuring();
    QString keyFor(const QString &url, const QString &agent) const;
    void requireAgent(const QString &agent, const QString &otherwise) const;
    QJsonObject entryOf(const QString &agent) const;
    void storeSettings(const QJsonObject &next);
    void takeCatalog(const ModelCatalog::Outcome &outcome);
    void takeServerCatalog(const ModelCatalog::Outcome &outcome);
    void tellSearch();

    // model_connection_checks.cpp
    void takeProvider(const Target &target, const LLMResult &result);
    void conclude(const std::function<void()> &work);
    void tryQwenEndpoint(const QString &key, qsizetype index, const QStringList &urls);
    void takeTest(const LLMResult &result);
    void takeMeasures();
    static QString adviceFor(const Target &target, const LLMResult &result);
    void shareModelAgain(const QString &agent);
    void checkAgent(const Target &target);
    void takeAgent(const Target &target, const LLMResult &result);
    void saveEntry(const QString &agent, const QJsonObject &entry);
    void takeServer(const Target &target, const LLMResult &result);

    Store &store;
    Engine &engine;
    MockProvider &mock;
    OpenAICompatibleProvider &client;
    Preferences &preferences;
    Conversation &conversation;
    QJsonObject document;
    OpenAICompatibleProvider probeClient;
    QPointer<OpenAICompatibleProvider> agentProbe;
    ModelCatalog modelCatalog;
    ServerFinder serverFinder;
    ConnectionMeasure measure;
    bool testing = false;
    QTimer checkLimit;
    bool measuresAfterTest = false;
    QJsonObject facts; ///< What is known of the team's server.
    QString apiStatus;
    QString serverLine;
};

/// The address that somebody means: without blanks and a slash at its end, with a scheme.
QString serverAddress(const QString &typed);

/// Throws unless models may be asked at this address: HTTPS, or HTTP on this machine, without user information, query,
/// fragment and braces.
void requireApiAddress(const QString &url);

} // namespace vesk
