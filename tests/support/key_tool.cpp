// Works on the credential store in a process of its own, so that each test can choose its environment.
//
//   key-tool DATA_FOLDER OPERATION...
//
//   save TARGET SECRET | read TARGET | remove TARGET   as CredentialStore does
//   fill PREFIX COUNT                                   saves PREFIX0, PREFIX1, ... each with its own name as the
//   secret ask TARGET PERSON_MS                                the outcome of Keyring::read with this limit for a
//   person traces TARGET                                       reads, then counts what is left of the key in memory
//   pause                                               goes on with the next line of standard input
//
// For each operation one line of JSON: {"result": ..., "ms": 12}.

#include "credential_store.h"
#include "keyring.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

const char *nameOf(SecretOutcome outcome)
{
    switch (outcome) {
    case SecretOutcome::Done:
        return "Done";
    case SecretOutcome::Missing:
        return "Missing";
    case SecretOutcome::Locked:
        return "Locked";
    case SecretOutcome::Absent:
        return "Absent";
    case SecretOutcome::Silent:
        return "Silent";
    case SecretOutcome::Failed:
        return "Failed";
    }
    return "";
}

QJsonValue ask(const QString &target, int personMs)
{
    KeyringLimits limits;
    limits.person = std::chrono::milliseconds(personMs);
    return QString::fromLatin1(nameOf(Keyring(limits).read(target).outcome));
}

QJsonValue fill(const QString &prefix, int count)
{
    bool ok = true;
    for (int i = 0; i < count; ++i)
        ok = CredentialStore::save(prefix + QString::number(i), prefix + QString::number(i)) && ok;
    return ok;
}

/// How often the Latin-1 text stands in the writable memory of this process. The text is UTF-16 here, so that neither
/// it nor the search counts.
int occurrences(const QString &text)
{
    QFile maps(u"/proc/self/maps"_s);
    QFile memory(u"/proc/self/mem"_s);
    if (!maps.open(QFile::ReadOnly) || !memory.open(QFile::ReadOnly | QFile::Unbuffered))
        return -1;
    const auto isThere = [&](const char *place) {
        for (qsizetype i = 0; i < text.size(); ++i) {
            if (place[i] != char(text[i].unicode()))
                return false;
        }
        return true;
    };
    int count = 0;
    const QList<QByteArray> lines = maps.readAll().split('\n');
    for (const QByteArray &line : lines) {
        if (!line.contains(" rw") || line.contains("[v"))
            continue;
        const qsizetype dash = line.indexOf('-');
        const auto first = line.first(dash).toULongLong(nullptr, 16);
        const auto end = line.sliced(dash + 1, line.indexOf(' ') - dash - 1).toULongLong(nullptr, 16);
        QByteArray page;
        // Each part is wiped, since freed memory is searched, too.
        constexpr quint64 part = 1 << 20;
        for (quint64 at = first; at < end; at += part) {
            memory.seek(qint64(at));
            page = memory.read(qint64(std::min(part + quint64(text.size()), end - at)));
            for (qsizetype i = 0; i + text.size() <= page.size() && quint64(i) < part; ++i)
                count += isThere(page.constData() + i);
            page.fill(0);
        }
    }
    return count;
}

/// Looks for the middle only: what manages freed memory writes over the beginning of a block.
QJsonValue traces(const QString &target)
{
    const QString secret = CredentialStore::read(target);
    QString code; // as it stands in the file
    {
        QByteArray bytes = secret.toUtf8();
        QByteArray base64 = bytes.toBase64();
        code = QString::fromLatin1(base64);
        bytes.fill(0);
        base64.fill(0);
    }
    constexpr qsizetype skipped = 60;
    constexpr qsizetype sought = 24;
    if (secret.size() < skipped + sought)
        return -1;
    return occurrences(secret.sliced(skipped, sought)) + occurrences(code.sliced(skipped, sought));
}

QJsonValue perform(const QString &operation, QStringList &arguments)
{
    if (operation == "pause"_L1)
        return std::getchar();
    const QString target = arguments.takeFirst();
    if (operation == "read"_L1)
        return CredentialStore::read(target);
    if (operation == "remove"_L1)
        return CredentialStore::remove(target);
    if (operation == "traces"_L1)
        return traces(target);
    if (operation == "save"_L1)
        return CredentialStore::save(target, arguments.takeFirst());
    if (operation == "fill"_L1)
        return fill(target, arguments.takeFirst().toInt());
    if (operation == "ask"_L1)
        return ask(target, arguments.takeFirst().toInt());
    qFatal("unknown operation");
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QStringList arguments = QCoreApplication::arguments().sliced(1);
    CredentialStore::setDataFolder(arguments.takeFirst());
    while (!arguments.isEmpty()) {
        const QString operation = arguments.takeFirst();
        QElapsedTimer timer;
        timer.start();
        const QJsonValue result = perform(operation, arguments);
        const QJsonObject line{{u"result"_s, result}, {u"ms"_s, timer.elapsed()}};
        std::printf("%s\n", QJsonDocument(line).toJson(QJsonDocument::Compact).constData());
        std::fflush(stdout);
    }
}
