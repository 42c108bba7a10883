#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QString>

#include <cstdlib>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

/// A terminal with nobody but the test before it.
class PseudoTerminal {
public:
    PseudoTerminal()
        : master(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC))
    {
        ::grantpt(master);
        ::unlockpt(master);
        // Held open: a master without any user of the other end reads an error.
        slave = ::open(::ptsname(master), O_RDWR | O_NOCTTY | O_CLOEXEC);
    }
    ~PseudoTerminal()
    {
        ::close(slave);
        ::close(master);
    }
    Q_DISABLE_COPY_MOVE(PseudoTerminal)

    /// The file that a program gets as its standard input or output.
    QString device() const { return QString::fromLocal8Bit(::ptsname(master)); }
    int descriptor() const { return slave; }

    void type(const QString &text)
    {
        const QByteArray bytes = text.toUtf8();
        (void)!::write(master, bytes.constData(), size_t(bytes.size()));
    }

    /// Waits until the text stands on the screen, behind what an earlier call has found.
    bool shows(const QString &text, int timeoutMs = 10000)
    {
        QElapsedTimer clock;
        clock.start();
        while (!screen.contains(text.toUtf8()) && clock.elapsed() < timeoutMs)
            read(50);
        const qsizetype at = screen.indexOf(text.toUtf8());
        if (at < 0)
            return false;
        screen.remove(0, at + text.toUtf8().size());
        return true;
    }
    QString rest()
    {
        while (read(0)) { }
        return QString::fromUtf8(screen);
    }

private:
    bool read(int timeoutMs)
    {
        pollfd source{master, POLLIN, 0};
        char bytes[4096];
        const ssize_t length = ::poll(&source, 1, timeoutMs) > 0 ? ::read(master, bytes, sizeof bytes) : 0;
        screen.append(bytes, std::max<ssize_t>(length, 0));
        return length > 0;
    }

    int master;
    int slave;
    QByteArray screen;
};
