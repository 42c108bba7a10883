#include "keyring_session.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>

#include <csignal>

#include <sys/prctl.h>

namespace {

constexpr auto password = "password";
constexpr int startLimitMs = 20000;

/// A bus that starts nothing by itself.
constexpr auto busConfiguration = R"(<busconfig>
<type>session</type>
<listen>unix:path=%1</listen>
<policy context="default">
<allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/><allow own="*"/>
</policy>
</busconfig>
)";

const char *nameOf(KeyringSession::Person person)
{
    switch (person) {
    case KeyringSession::Person::Declining:
        return "declining";
    case KeyringSession::Person::DecliningAtFirst:
        return "declining-at-first";
    case KeyringSession::Person::Slow:
        return "slow";
    case KeyringSession::Person::Absent:
        return "absent";
    case KeyringSession::Person::Nobody:
        break;
    }
    return "";
}

void end(std::unique_ptr<QProcess> &program)
{
    if (!program)
        return;
    program->kill();
    program->waitForFinished();
    program.reset();
}

} // namespace

KeyringSession::KeyringSession()
    : environment(QProcessEnvironment::systemEnvironment())
{
    for (const char *variable : {"DISPLAY", "WAYLAND_DISPLAY", "VESK_SECRETS", "GNOME_KEYRING_CONTROL"})
        environment.remove(variable);
    environment.insert("HOME", home.path());
    for (const char *variable : {"XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_RUNTIME_DIR"}) {
        const QString folder = home.filePath(variable);
        QDir().mkdir(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        environment.insert(variable, folder);
    }
    environment.insert("DBUS_SESSION_BUS_ADDRESS", "disabled:");
    // What libsecret itself never frees is known by its functions, and those are seen only by whole stacks.
    environment.insert("ASAN_OPTIONS", environment.value("ASAN_OPTIONS") + ":fast_unwind_on_malloc=0");
}

KeyringSession::~KeyringSession()
{
    endKeyring();
    end(person);
    end(bus);
}

QString KeyringSession::missingProgram()
{
    for (const char *program : {"dbus-daemon", "gnome-keyring-daemon", "gdbus"}) {
        if (QStandardPaths::findExecutable(program).isEmpty())
            return program;
    }
    return {};
}

KeyringSession::Program KeyringSession::start(const QString &program, const QStringList &arguments,
                                              const QByteArray &input)
{
    auto process = std::make_unique<QProcess>();
    process->setProcessEnvironment(environment);
    process->setStandardErrorFile(QProcess::nullDevice());
    // Not even a test that is killed leaves it behind.
    process->setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
    process->start(program, arguments);
    process->write(input);
    while (process->bytesToWrite() > 0 && process->waitForBytesWritten(startLimitMs)) { }
    process->closeWriteChannel();
    return process;
}

bool KeyringSession::startBus()
{
    const QString socket = home.filePath("bus");
    QFile configuration(home.filePath("bus.conf"));
    if (!configuration.open(QFile::WriteOnly))
        return false;
    configuration.write(QString(busConfiguration).arg(socket).toUtf8());
    configuration.close();
    bus = start("dbus-daemon", {"--nofork", "--print-address", "--config-file=" + configuration.fileName()});
    environment.insert("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + socket);
    return bus->waitForReadyRead(startLimitMs);
}

void KeyringSession::endBus()
{
    end(bus);
}

bool KeyringSession::seat(Person who)
{
    if (who == Person::Nobody)
        return true;
    person = start(KEYRING_PERSON_PROGRAM, {nameOf(who), password});
    if (!person->waitForReadyRead(startLimitMs))
        return false;
    environment.insert("GNOME_KEYRING_TEST_PROMPTER", person->readLine().trimmed());
    return true;
}

bool KeyringSession::startUnlockedKeyring()
{
    return startKeyring({"--unlock"}, password);
}

bool KeyringSession::startLockedKeyring()
{
    return startKeyring({}, {});
}

bool KeyringSession::startKeyring(const QStringList &arguments, const QByteArray &input)
{
    keyring = start("gnome-keyring-daemon", QStringList{"--foreground", "--components=secrets"} + arguments, input);
    QProcess wait;
    wait.setProcessEnvironment(environment);
    wait.start("gdbus", {"wait", "--session", "--timeout", "15", "org.freedesktop.secrets"});
    return wait.waitForFinished(startLimitMs) && wait.exitCode() == 0;
}

void KeyringSession::endKeyring()
{
    end(keyring);
}

void KeyringSession::hangKeyring()
{
    ::kill(pid_t(keyring->processId()), SIGSTOP);
}

void KeyringSession::resumeKeyring()
{
    ::kill(pid_t(keyring->processId()), SIGCONT);
}
