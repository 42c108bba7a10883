// Works on the credential store in a process of its own, so that each test can choose its environment.
//
//   key-tool DATA_FOLDER OPERATION...
//
//   save TARGET SECRET | read TARGET | remove TARGET   as CredentialStore does
//   size TARGET                                         reads, and tells how long the key is
//   ask TARGET PERSON_MS                                the SecretOutcome of Keyring::read with this limit for a person
//   pause                                               goes on with the next line of standard input
//
// For each operation one line of JSON: {"result": ..., "ms": 12}.

#include "credential_store.h"
#include "keyring.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

QJsonValue perform(const QString &operation, QStringList &arguments)
{
    if (operation == "pause"_L1)
        return std::getchar();
    const QString target = arguments.takeFirst();
    if (operation == "read"_L1)
        return CredentialStore::read(target);
    if (operation == "size"_L1)
        return CredentialStore::read(target).size();
    if (operation == "remove"_L1)
        return CredentialStore::remove(target);
    if (operation == "save"_L1)
        return CredentialStore::save(target, arguments.takeFirst());
    if (operation == "ask"_L1) {
        KeyringLimits limits;
        limits.person = std::chrono::milliseconds(arguments.takeFirst().toInt());
        return int(Keyring(limits).read(target).outcome);
    }
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
