// The search path as the user's shell has it.

#include "login_path.h"

#include "process_containment.h"

#include <QFileInfo>
#include <QProcess>
#include <QTimer>

#include <memory>

#include <pwd.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr int limitMs = 3000;
constexpr qsizetype printedLimitBytes = 256 * 1024;

const QByteArray &mark()
{
    static const QByteArray text = "<<vesk-search-path>>";
    return text;
}

QString loginShell()
{
    const QString chosen = qEnvironmentVariable("SHELL");
    if (chosen.startsWith(u'/') && QFileInfo(chosen).isExecutable())
        return chosen;
    const passwd *user = ::getpwuid(::getuid());
    const QString listed = user ? QString::fromLocal8Bit(user->pw_shell) : QString();
    return QFileInfo(listed).isExecutable() ? listed : u"/bin/sh"_s;
}

void keep(QByteArray &printed, QProcess &shell)
{
    printed += shell.readAllStandardOutput();
    // The path comes last, so what is too much goes at the front.
    if (printed.size() > printedLimitBytes)
        printed = printed.last(printedLimitBytes);
}

} // namespace

QString markedPath(const QByteArray &printed, const QByteArray &mark)
{
    const qsizetype end = printed.lastIndexOf(mark);
    const qsizetype begin = end > 0 ? printed.lastIndexOf(mark, end - 1) : -1;
    return begin < 0 ? QString() : QString::fromLocal8Bit(printed.mid(begin + mark.size(), end - begin - mark.size()));
}

void askLoginPath(QObject *context, const std::function<void(const QString &)> &done)
{
    auto *shell = new QProcess(context);
    const auto printed = std::make_shared<QByteArray>();
    const auto containment = std::make_shared<ProcessContainment>();
    // Interactive, too: what puts programs of a language's own package manager on the path stands in files that only
    // such a shell reads.
    const QString command = u"printf '%s%s%s' '%1' \"$PATH\" '%1'"_s.arg(QString::fromLatin1(mark()));
    const QString problem = containment->prepare(*shell, loginShell(), {u"-i"_s, u"-l"_s, u"-c"_s, command});
    const auto end = [shell, printed, done] {
        shell->disconnect();
        shell->deleteLater();
        done(markedPath(*printed + shell->readAllStandardOutput(), mark()));
    };
    if (!problem.isEmpty()) {
        QTimer::singleShot(0, shell, end);
        return;
    }
    QObject::connect(shell, &QProcess::readyReadStandardOutput, shell, [shell, printed] { keep(*printed, *shell); });
    QObject::connect(shell, &QProcess::finished, shell, end);
    QObject::connect(shell, &QProcess::errorOccurred, shell, [end](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart)
            end();
    });
    QTimer::singleShot(limitMs, Qt::PreciseTimer, shell, [shell] { ProcessContainment::end(*shell); });
    shell->setStandardErrorFile(QProcess::nullDevice());
    shell->start(QIODevice::ReadWrite);
    shell->closeWriteChannel();
}

} // namespace vesk
