#pragma once

#include <QString>
#include <QStringList>

namespace vesk {

/// What this process is, decided from the command line alone.
enum class Mode {
    MediaJob,
    BackgroundWorker,
    SelfTestBackground,
    ProbeMcp,
    Help,
    Version,
    Run,
    LiveSmoke,
    Diff,
    ProbeSkill,
    ConnectQwenEnvironment,
    Interface,
};

/// The arguments of the process. There is no parser of options: each is found by comparing whole arguments, its value
/// is the argument right behind it, and a missing value reads as the empty text.
class CommandLine {
public:
    /// `arguments` without the program's own name.
    explicit CommandLine(const QStringList &arguments);

    Mode mode() const;
    /// The option that has decided on the mode; empty for the interface.
    QString modeOption() const;
    bool has(const QString &option) const;
    QString value(const QString &option) const;
    const QStringList &all() const { return arguments; }

    /// Where database and locks live; empty when the command line names no folder behind "--data-dir".
    QString dataFolder(const QString &usual) const;

private:
    QStringList arguments;
};

/// What `vesk --help` prints.
QString helpText();

} // namespace vesk
