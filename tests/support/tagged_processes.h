#pragma once

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QTest>
#include <QUuid>

#include <unistd.h>

/// Marks all that this process starts from now on, however it detaches itself, by a variable in the environment that is
/// different in every object.
class TaggedProcesses {
public:
    TaggedProcesses() { qputenv("VESK_TEST_TAG", tag); }
    ~TaggedProcesses() { qunsetenv("VESK_TEST_TAG"); }
    Q_DISABLE_COPY_MOVE(TaggedProcesses)

    /// How many are alive. Guards count too; zombies don't, as they have no environment any more.
    int alive() const
    {
        return count([this](int process) { return isTagged(process); });
    }

    /// How many of them are stopped.
    int stopped() const
    {
        return count([this](int process) { return isTagged(process) && isStopped(process); });
    }

    /// Waits, on a busy machine for a good while, until so many are alive, stopped, or none is left.
    bool growTo(int wanted) const
    {
        return QTest::qWaitFor([this, wanted] { return alive() >= wanted; }, limitMs);
    }
    bool stopTo(int wanted) const
    {
        return QTest::qWaitFor([this, wanted] { return stopped() >= wanted; }, limitMs);
    }
    bool vanish() const
    {
        return QTest::qWaitFor([this] { return alive() == 0; }, limitMs);
    }

private:
    static constexpr int limitMs = 30000;

    template <typename Test> static int count(const Test &test)
    {
        int found = 0;
        const QStringList entries = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
        for (const QString &entry : entries) {
            const int process = entry.toInt();
            if (process > 0 && process != ::getpid() && test(process))
                ++found;
        }
        return found;
    }

    /// The state stands behind the name, which may hold blanks and brackets of its own.
    static bool isStopped(int process)
    {
        QFile file(QStringLiteral("/proc/%1/stat").arg(process));
        if (!file.open(QIODevice::ReadOnly))
            return false;
        const QByteArray line = file.readAll();
        return line.sliced(line.lastIndexOf(')') + 1).startsWith(" T");
    }

    bool isTagged(int process) const
    {
        QFile file(QStringLiteral("/proc/%1/environ").arg(process));
        return file.open(QIODevice::ReadOnly) && file.readAll().split('\0').contains("VESK_TEST_TAG=" + tag);
    }

    const QByteArray tag = QUuid::createUuid().toByteArray(QUuid::WithoutBraces);
};
