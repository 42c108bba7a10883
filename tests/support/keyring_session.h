#pragma once

#include <QProcess>
#include <QProcessEnvironment>
#include <QTemporaryDir>

#include <memory>

/// A home folder and a session bus of their own, with a real keyring daemon. All its processes end with it.
class KeyringSession {
public:
    /// Who is at the machine when the keyring asks for a password. Slow takes 5 s for an answer.
    enum class Person { Nobody, Declining, DecliningAtFirst, Slow, Absent };

    KeyringSession();
    ~KeyringSession();

    /// Empty, or what has to be installed for any of this.
    static QString missingProgram();

    bool startBus();
    void endBus();
    /// The password is that of every keyring here. To be called before the daemon is started.
    bool seat(Person person);
    bool startUnlockedKeyring();
    /// As after logging in by other means than the password.
    bool startLockedKeyring();
    void endKeyring();
    /// The daemon answers nothing from now on, or goes on.
    void hangKeyring();
    void resumeKeyring();

    QString dataFolder() const { return home.filePath("app"); }
    QString keyFile() const { return dataFolder() + "/credentials"; }

    /// What programs of the session are started with; changes count for the next one.
    QProcessEnvironment environment;

private:
    using Program = std::unique_ptr<QProcess>;
    Program start(const QString &program, const QStringList &arguments, const QByteArray &input = {});
    bool startKeyring(const QStringList &arguments, const QByteArray &input);

    QTemporaryDir home;
    Program bus;
    Program person;
    Program keyring;
};
