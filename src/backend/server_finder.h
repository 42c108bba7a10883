#pragma once

#include "bounded_reply.h"
#include "private_network.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QVariant>

namespace vesk {

/// Looks for model servers on this machine: asks the ports on which the usual ones listen for their models. Nothing
/// leaves the machine, no key is sent, and two seconds later it is over.
class ServerFinder : public QObject {
    Q_OBJECT
public:
    struct Place {
        QString name; ///< Of the program that usually listens there.
        QString url; ///< Base address.
    };
    /// llama.cpp, Ollama, LM Studio and vLLM.
    static QList<Place> usualPlaces();

    bool isSearching() const { return waitingFor > 0; }
    /// What has answered as a model server so far, in the order of the places: {"name", "url", "models": [{"id"}]}. One
    /// that asks for a key is there without its models.
    QVariantList found() const;

    /// Asks all places at once; what an earlier search found is forgotten.
    void search(const QList<Place> &places = usualPlaces());
    void stop();

Q_SIGNALS:
    /// Somebody has answered.
    void changed();
    void finished();
    /// For the replies that are on their way.
    void stopped(QPrivateSignal);

private:
    void take(qsizetype place, const QString &name, const QString &url, const ServerReply &answer);

    PrivateNetwork network;
    QList<QVariantMap> servers; ///< One for each place, empty where nothing was found.
    qsizetype waitingFor = 0;
    quint32 generation = 0;
};

} // namespace vesk
