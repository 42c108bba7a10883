#pragma once

#include "bounded_reply.h"
#include "private_network.h"

#include <QJsonArray>
#include <QNetworkReply>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QVariant>

class QNetworkRequest;

namespace vesk {

/// The name under which a server at an address of the user's own stands beside those of the known providers.
QString ownServerName();

/// The GET of a server's list of models.
QNetworkRequest catalogRequest(const QString &base, const QString &key);

/// What the list of a server comes to.
struct Catalog {
    QStringList models; ///< Sorted, each once.
    bool isList = false; ///< The body is a list of models at all.
    bool isCut = false; ///< There are more than an interface can use: of an own server, the first 5,000 are here.
};
/// Reads {"data": [{"id"}]}. Of the known providers those models that the agents can work with, of a server of the
/// user's own all. A name that holds the key, as a server may send it back, is left out.
Catalog catalogOf(const QString &provider, const QByteArray &body, const QString &key = {});

/// The models that one server offers, at any time those of the latest question. What an older one still answers changes
/// nothing.
class ModelCatalog : public QObject {
    Q_OBJECT
public:
    struct Outcome {
        ServerReply reply; ///< Without its body.
        Catalog catalog;
        QString base;
        bool hadKey = false;
    };

    /// Objects with one key, "id".
    const QVariantList &models() const { return shown; }
    bool isLoading() const { return modelsReply || reading; }
    /// "provider/agent".
    QString owner() const { return catalogProvider + u'/' + catalogAgent; }
    const QString &ownerProvider() const { return catalogProvider; }

    /// From now on the catalogue is empty and belongs to these.
    void beginFor(const QString &provider, const QString &agent);
    /// Asks the server; the list comes with `finished`, within a minute.
    void ask(const QString &base, const QString &key);
    /// Forgets the question that is on its way.
    void abort();

Q_SIGNALS:
    void finished(const vesk::ModelCatalog::Outcome &outcome);

private:
    void read(const ServerReply &answer, const QString &base, const QString &key);

    PrivateNetwork catalogNetwork;
    QPointer<QNetworkReply> modelsReply;
    quint32 catalogGeneration = 0; ///< Raised to make answers on their way harmless.
    bool reading = false;
    QString catalogProvider;
    QString catalogAgent;
    QVariantList shown;
};

} // namespace vesk
