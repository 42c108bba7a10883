#include "vesk_run.h"

#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTimer>

using namespace Qt::StringLiterals;

const QString VeskRun::calculator = u"Создай простое приложение-калькулятор."_s;
const QString VeskRun::build = u"Собери проект"_s;

QList<QJsonObject> Ended::events() const
{
    QList<QJsonObject> list;
    const QStringList lines = out.first(out.lastIndexOf(u'\n') + 1).split(u'\n', Qt::SkipEmptyParts);
    for (const QString &line : lines)
        list.append(QJsonDocument::fromJson(line.toUtf8()).object());
    return list;
}

QString VeskRun::program()
{
    return QStringLiteral(VESK_PROGRAM);
}

QStringList VeskRun::arguments(const QString &request, const QStringList &more) const
{
    QStringList list{u"--run"_s, request, u"--project"_s, project(), u"--data-dir"_s, data()};
    if (!more.contains(u"--mock-delay"_s))
        list += {u"--mock-delay"_s, u"0"_s};
    return list + more;
}

QStringList VeskRun::shell(const QString &script)
{
    const QJsonObject command{{u"program"_s, u"/bin/sh"_s}, {u"arguments"_s, QJsonArray{u"-c"_s, script}}};
    return {u"--build-command"_s, QString::fromUtf8(QJsonDocument(command).toJson(QJsonDocument::Compact))};
}

Ended VeskRun::run(const QStringList &arguments, const std::function<void(QProcess &)> &prepare, int timeoutMs) const
{
    QProcess process;
    process.setStandardInputFile(QProcess::nullDevice());
    if (prepare)
        prepare(process);
    start(process, arguments);
    return ended(process, timeoutMs);
}

void VeskRun::start(QProcess &process, const QStringList &arguments) const
{
    if (process.program().isEmpty())
        process.setProgram(program());
    process.setArguments(process.arguments() + arguments);
    if (process.workingDirectory().isEmpty())
        process.setWorkingDirectory(folder.path());
    auto parameters = process.unixProcessParameters();
    parameters.flags |= QProcess::UnixProcessFlag::ResetSignalHandlers;
    process.setUnixProcessParameters(parameters);
    process.start();
    process.waitForStarted();
}

Ended VeskRun::ended(QProcess &process, int timeoutMs)
{
    Ended result;
    if (process.state() != QProcess::NotRunning) {
        QEventLoop loop;
        QObject::connect(&process, &QProcess::finished, &loop, &QEventLoop::quit);
        QTimer::singleShot(timeoutMs, &loop, &QEventLoop::quit);
        loop.exec();
    }
    if (process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished();
    } else if (process.exitStatus() == QProcess::NormalExit && process.error() == QProcess::UnknownError) {
        result.code = process.exitCode();
    }
    result.out = QString::fromUtf8(process.readAllStandardOutput());
    result.err = QString::fromUtf8(process.readAllStandardError());
    return result;
}
