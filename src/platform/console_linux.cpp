#include "console.h"

#include <cstdio>

#include <unistd.h>

namespace vesk {

namespace {

void write(std::FILE *stream, const QString &text)
{
    const QByteArray line = text.toUtf8() + '\n';
    std::fwrite(line.constData(), 1, std::size_t(line.size()), stream);
    std::fflush(stream);
}

} // namespace

bool canAsk()
{
    return ::isatty(STDIN_FILENO) == 1;
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

} // namespace vesk
