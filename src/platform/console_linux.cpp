// The terminal or the pipes that the process was started with.

#include "console.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

namespace vesk {

namespace {

bool failed = false;

bool steersTerminal(QChar c)
{
    return c.category() == QChar::Other_Control && c != u'\n' && c != u'\t';
}

void write(std::FILE *stream, QString text)
{
    if (::isatty(::fileno(stream)) == 1)
        std::replace_if(text.begin(), text.end(), steersTerminal, QChar(QChar::ReplacementCharacter));
    const QByteArray line = text.toUtf8() + '\n';
    errno = 0;
    std::fwrite(line.constData(), 1, std::size_t(line.size()), stream);
    if (std::fflush(stream) != 0 && errno != EPIPE && stream == stdout)
        failed = true;
}

} // namespace

void ensureStandardStreams()
{
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        // The lowest number that is free is this one.
        if (::fcntl(standard, F_GETFD) < 0)
            (void)!::open("/dev/null", O_RDWR);
    }
}

bool canAsk()
{
    return ::isatty(STDIN_FILENO) == 1 && ::isatty(STDERR_FILENO) == 1;
}

void dropTyped()
{
    ::tcflush(STDIN_FILENO, TCIFLUSH); // fails where there is no terminal, and is not needed there
}

std::optional<QString> readAnswer()
{
    std::array<char, 4096> line;
    const ssize_t length = ::read(STDIN_FILENO, line.data(), line.size());
    if (length <= 0)
        return {};
    return QString::fromUtf8(line.data(), length).trimmed();
}

bool hasDisplay()
{
    return !qEnvironmentVariableIsEmpty("DISPLAY") || !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")
        || !qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM");
}

void printLine(const QString &text)
{
    write(stdout, text);
}

void printErrorLine(const QString &text)
{
    write(stderr, text);
}

bool printingFailed()
{
    return failed;
}

} // namespace vesk
