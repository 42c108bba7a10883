// Modes that drive a backend as a person would, without a window.

#include "backend.h"
#include "command_line.h"
#include "console.h"
#include "credential_store.h"
#include "data_folder.h"
#include "entry_points.h"
#include "environment.h"

#include <QCoreApplication>
#include <QTimer>

#include <chrono>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr int noKey = 2;
constexpr int usageError = 2;
constexpr int timedOut = 3;
constexpr int noSkill = 6;
constexpr auto longestSkill = std::chrono::seconds(25);
constexpr auto longestConnecting = std::chrono::seconds(60);

/// "--connect-qwen-environment" with its key: 0 connected, 1 refused, 3 after 60 s.
int connectQwen(Backend &backend, const QString &key)
{
    const auto check = [&backend] {
        if (backend.property("apiTesting").toBool())
            return;
        QTimer::singleShot(0, &backend, [&backend] {
            const QString status = backend.property("apiStatus").toString();
            qInfo("%s", qUtf8Printable(status));
            QCoreApplication::exit(status.startsWith(u"Qwen 3.8 подключён"_s) ? 0 : 1);
        });
    };
    QObject::connect(&backend, &Backend::changed, &backend, check);
    QTimer::singleShot(0, &backend, [&backend, key] { backend.connectQwen(key); });
    QTimer::singleShot(longestConnecting, &backend, [] { QCoreApplication::exit(timedOut); });
    return QCoreApplication::exec();
}

/// "--probe-skill" with a link: 0 once the chief agent has a skill, 6 after 25 s.
int probeSkill(Backend &backend, const QString &link)
{
    QObject::connect(&backend, &Backend::changed, &backend, [&backend] {
        if (backend.agentProfiles().value(0).toMap().value(u"skill_url"_s).toString().isEmpty())
            return;
        qInfo("GitHub skill fetched and stored");
        QCoreApplication::exit(0);
    });
    QTimer::singleShot(0, &backend, [&backend, link] { backend.setAgentSkill(u"orchestrator"_s, link); });
    QTimer::singleShot(longestSkill, &backend, [] {
        qWarning("Skill fetch failed");
        QCoreApplication::exit(noSkill);
    });
    return QCoreApplication::exec();
}

/// The mode of the line, with a backend on the folder.
int drive(const CommandLine &line, const QString &dataFolder)
{
    QString key;
    if (line.mode() == Mode::ConnectQwenEnvironment) {
        key = takeSecretVariable(u"VESK_QWEN_API_KEY"_s);
        if (key.trimmed().isEmpty())
            return noKey;
    }
    const DataFolder folder(dataFolder);
    if (folder.isTaken()) {
        printErrorLine(folder.takenText());
        return usageError;
    }
    CredentialStore::setDataFolder(folder.path());
    Backend backend(folder.path());
    return line.mode() == Mode::ProbeSkill ? probeSkill(backend, line.value(u"--probe-skill"_s))
                                           : connectQwen(backend, key);
}

} // namespace

} // namespace vesk

extern "C" Q_DECL_EXPORT int veskDriveBackend(const vesk::CommandLine *line, const QString *dataFolder)
{
    return vesk::drive(*line, *dataFolder);
}
