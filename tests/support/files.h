#pragma once

#include <QDir>
#include <QFile>
#include <QTest>

#include <algorithm>

#include <fcntl.h>
#include <unistd.h>

/// Writes a file of its own, and the folders on the way.
inline void save(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(bytes), bytes.size());
}

/// The bytes of a file, "(none)" without one.
inline QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(none)");
}

/// The same for what must be quick and is short: nothing but three system calls.
inline void saveShort(const QByteArray &path, const QByteArray &bytes, int flags = 0)
{
    const int file = ::open(path.constData(), O_WRONLY | O_CREAT | O_CLOEXEC | flags, 0666);
    (void)!::write(file, bytes.constData(), size_t(bytes.size()));
    ::close(file);
}
inline QByteArray shortContentOf(const QByteArray &path)
{
    char text[64];
    const int file = ::open(path.constData(), O_RDONLY | O_CLOEXEC);
    const ssize_t size = ::read(file, text, sizeof text);
    ::close(file);
    return QByteArray(text, std::max<ssize_t>(size, 0));
}

/// The names of all that is in a folder, hidden things too.
inline QStringList everythingIn(const QString &folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
}
