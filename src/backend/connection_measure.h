#pragma once

#include "measure_plan.h"
#include "private_network.h"

#include <QElapsedTimer>
#include <QJsonObject>
#include <QNetworkReply>
#include <QObject>
#include <QPointer>
#include <QString>

namespace vesk {

/// Asks one server the questions of the plan, one after the other. Each is bounded in time and bytes, and it can be
/// stopped at any moment.
class ConnectionMeasure : public QObject {
    Q_OBJECT
public:
    bool isRunning() const { return running; }
    const QString &url() const { return address; }
    const QString &model() const { return asked; }
    /// What the answers say so far.
    QJsonObject facts() const { return factsOf(answers); }

    void start(const QString &url, const QString &model, const QString &key);
    void stop();

Q_SIGNALS:
    /// Another answer is there.
    void changed();
    /// All is asked, or the server has stopped answering.
    void finished();

private:
    void askNext();
    void ask(Probe probe, int lines);
    void take(const ProbeAnswer &answer);

    PrivateNetwork network;
    QPointer<QNetworkReply> reply;
    QElapsedTimer clock;
    QList<ProbeAnswer> answers;
    quint32 generation = 0;
    bool running = false;
    QString address;
    QString asked;
    QString key;
};

} // namespace vesk
