#pragma once

#include <QByteArray>
#include <QObject>
#include <QProcess>
#include <QString>
#include <QTimer>
#include <QVariantList>

#include <optional>

namespace vesk {

/// Shapes to be drawn behind everything else, as the user's script describes them. The script runs in another process,
/// this executable as "--background-worker", and is killed when a frame takes too long. A script that has failed is
/// not tried again until its text changes. Main thread only; never waits for a script.
class BackgroundRenderer : public QObject {
    Q_OBJECT
public:
    explicit BackgroundRenderer(QObject *parent = nullptr);
    ~BackgroundRenderer() override;

    /// Asks for a frame of `code` at `time` seconds for a window of this size in pixels. May be called at any rate:
    /// while a frame is on its way the call does nothing. An empty script ends the worker.
    void render(const QString &code, double time, int width, int height);

    /// The shapes of the last frame, each a map as the script gave it; empty when there is none.
    const QVariantList &frame() const { return shapes; }
    /// What is wrong with the script, for the user; empty when nothing is.
    const QString &error() const { return problem; }
    /// The line of the script that error() is about, from 1; 0 where that isn't known.
    int errorLine() const { return problemLine; }

Q_SIGNALS:
    /// Frame or error may have changed.
    void changed();

private:
    struct Request {
        double time = 0;
        int width = 0;
        int height = 0;
    };

    void restart(const QString &text);
    void send(const Request &request);
    void endWorker();
    void fail(const QString &text);
    void readReply();
    void take(const QJsonObject &reply);
    void workerFailed();
    void workerEnded();

    QProcess worker;
    QTimer timer; ///< The limit of the frame on its way.
    QByteArray buffer; ///< Output of the worker not yet taken as a line.
    QString code;
    bool busy = false; ///< A request is written and its reply has not come.
    bool stopped = false; ///< This script has failed.
    bool ending = false; ///< The worker is killed and not gone yet.
    std::optional<Request> postponed; ///< Asked for while the worker was ending.
    qint32 generation = 0; ///< Of the script: a reply to an older one is dropped.
    QVariantList shapes;
    QString problem;
    int problemLine = 0;
};

} // namespace vesk
