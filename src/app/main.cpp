#include "command_line.h"
#include "console.h"
#include "folder_lock.h"
#include "helpers.h"
#include "mock_provider.h"
#include "process_signals.h"
#include "roles.h"
#include "run_mode.h"
#include "run_options.h"
#include "version.h"

#include <QCoreApplication>
#include <QDir>
#include <QStandardPaths>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

constexpr int startFailed = 1;
constexpr int usageError = 2;

int unavailable(const CommandLine &line)
{
    const QString what = line.mode() == Mode::Interface ? u"Окно приложения"_s : line.modeOption();
    printErrorLine(what + u": в этой версии ещё нет. Доступно: vesk --run ЗАПРОС, подробнее — vesk --help."_s);
    return usageError;
}

/// The folder of database and history, made when missing.
QString preparedDataFolder(const CommandLine &line)
{
    const QString folder = line.dataFolder(QStandardPaths::writableLocation(QStandardPaths::AppLocalDataLocation));
    require(!folder.isEmpty(), u"Не указана папка данных"_s);
    require(QDir().mkpath(folder), u"Не удалось создать папку данных: "_s + folder);
    return folder;
}

int runTask(const CommandLine &line)
{
    const ProcessSignals requests;
    RunOptions options;
    try {
        options = parseRunOptions(line.all());
    } catch (const std::exception &fault) {
        printErrorLine(textOf(fault) + u"\nСправка: vesk --help"_s);
        return usageError;
    }
    const QString folder = preparedDataFolder(line);
    const FolderLock lock(folder);
    require(lock.outcome() != FolderLock::Outcome::Unavailable, u"Не удалось занять папку данных: "_s + folder);
    if (lock.outcome() == FolderLock::Outcome::Busy) {
        printErrorLine(u"VESK уже работает с этой папкой данных: "_s + folder
                       + u"\nДождитесь его завершения или укажите другую папку через --data-dir."_s);
        return usageError;
    }
    MockProvider model;
    model.delayMs = options.mockDelayMs;
    RunMode mode(options, folder, model);
    QObject::connect(&requests, &ProcessSignals::endRequested, &mode, &RunMode::interrupt);
    return mode.exec();
}

int runMode(const CommandLine &line)
{
    switch (line.mode()) {
    case Mode::Help:
        printLine(helpText());
        return 0;
    case Mode::Version:
        printLine(u"VESK "_s + QStringLiteral(VESK_VERSION));
        return 0;
    case Mode::Run:
        return runTask(line);
    default:
        return unavailable(line);
    }
}

} // namespace

int main(int argc, char **argv)
{
    ensureStandardStreams();
    ProcessSignals::ignoreBrokenPipes();
    registerPrompts();
    QCoreApplication application(argc, argv);
    QCoreApplication::setOrganizationName(u"VESK"_s);
    QCoreApplication::setApplicationName(u"VESK"_s);
    try {
        return runMode(CommandLine(QCoreApplication::arguments().sliced(1)));
    } catch (const std::exception &fault) {
        qCritical("%s", fault.what());
        return startFailed;
    }
}
