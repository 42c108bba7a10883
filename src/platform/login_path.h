#pragma once

#include <QByteArray>
#include <QString>

#include <functional>

class QObject;

namespace vesk {

/// Asks the user's login shell for its search path, without waiting for it. A program that was started from a desktop
/// has a shorter one, which lacks what the user has installed. Runs `done` once, on the thread of `context`, unless
/// that is gone: with the path, or with an empty text when the shell says none within 3 s. What the shell has started
/// by then is ended with it.
void askLoginPath(QObject *context, const std::function<void(const QString &)> &done);

/// The path in what the shell has printed: the text between the last two marks; empty without them. Start-up files of
/// a shell may print anything before.
QString markedPath(const QByteArray &printed, const QByteArray &mark);

} // namespace vesk
