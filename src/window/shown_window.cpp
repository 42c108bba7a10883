// A second start shows the window of the first.

#include "shown_window.h"

#include "desktop.h"
#include "helpers.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>
#include <QLocalSocket>
#include <QQuickWindow>
#include <QThread>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr int patienceMs = 2000;
constexpr int startMs = 1500;
constexpr int pauseMs = 50;
constexpr qsizetype maxCallBytes = 512;
constexpr qsizetype longestSocket = 90;

/// In the data folder, which is the user's alone; a path too long for a socket stands in for itself elsewhere.
QString socketOf(const QString &dataFolder)
{
    const QString place = QFileInfo(dataFolder).canonicalFilePath();
    const QString socket = place + u"/window.socket"_s;
    return socket.toUtf8().size() <= longestSocket ? socket
                                                   : QDir::tempPath() + u"/vesk-"_s + digest(place.toUtf8()).left(32);
}

} // namespace

ShownWindow::ShownWindow(const QString &dataFolder, QQuickWindow *window, QObject *parent)
    : QObject(parent)
    , window(window)
{
    server.setSocketOptions(QLocalServer::UserAccessOption);
    connect(&server, &QLocalServer::newConnection, this, &ShownWindow::take);
    const QString socket = socketOf(dataFolder);
    // Whoever listened there before is gone: the folder is ours.
    QLocalServer::removeServer(socket);
    server.listen(socket);
}

void ShownWindow::take()
{
    while (QLocalSocket *caller = server.nextPendingConnection()) {
        connect(caller, &QLocalSocket::disconnected, caller, &QObject::deleteLater);
        connect(caller, &QLocalSocket::readyRead, this, [this, caller] {
            if (caller->bytesAvailable() > maxCallBytes)
                return caller->abort();
            if (!caller->canReadLine())
                return;
            const QByteArray line = caller->readLine(maxCallBytes).trimmed();
            if (line == "show" || line.startsWith("show "))
                show(line.sliced(4).trimmed());
            caller->write("shown\n");
            caller->disconnectFromServer();
        });
    }
}

void ShownWindow::show(const QByteArray &token)
{
    if (!window)
        return;
    // On Wayland a window may only come to the front with what the second start got from the click.
    setActivationToken(token);
    window->setWindowStates(window->windowStates() & ~Qt::WindowMinimized);
    window->show();
    window->raise();
    window->requestActivate();
}

bool ShownWindow::call(const QString &dataFolder)
{
    QLocalSocket socket;
    // The first one may be at its own start still: two clicks in a row.
    for (const QDeadlineTimer end(startMs); !socket.isValid() && !end.hasExpired(); QThread::msleep(pauseMs)) {
        socket.connectToServer(socketOf(dataFolder));
        if (socket.waitForConnected(patienceMs))
            break;
    }
    if (!socket.isValid())
        return false;
    socket.write("show " + activationToken() + '\n');
    return socket.waitForReadyRead(patienceMs) && socket.readAll() == "shown\n";
}

} // namespace vesk
