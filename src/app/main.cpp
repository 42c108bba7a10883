// The entry: picks the mode and loads what only that needs.

#include "command_line.h"
#include "console.h"
#include "credential_store.h"
#include "data_folder.h"
#include "diff_mode.h"
#include "entry_points.h"
#include "environment.h"
#include "helpers.h"
#include "live_smoke.h"
#include "mock_provider.h"
#include "openai_provider.h"
#include "probe_mcp.h"
#include "process_signals.h"
#include "programs.h"
#include "roles.h"
#include "run_mode.h"
#include "run_options.h"
#include "self_test_background.h"
#include "server_connection.h"
#include "store.h"
#include "version.h"

#include <QCoreApplication>
#include <QDir>
#include <QLibrary>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <memory>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

constexpr int startFailed = 1;
constexpr int usageError = 2;

/// The arguments before there is an application: good enough to find options, which are all ASCII.
QStringList plainArguments(int argc, char **argv)
{
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments.append(QString::fromUtf8(argv[i]));
    return arguments;
}

QString usualDataFolder(const CommandLine &line)
{
    return line.dataFolder(QStandardPaths::writableLocation(QStandardPaths::AppLocalDataLocation));
}

/// The key in the variable that the options name, which is gone from the environment after this.
QString givenKey(const RunOptions &options)
{
    if (options.keyVariable.isEmpty())
        return {};
    const QString key = cleanKey(takeSecretVariable(options.keyVariable));
    require(!key.isEmpty(), u"--key-env: переменная "_s + options.keyVariable + u" не задана"_s);
    return key;
}

std::unique_ptr<ILLMProvider> demonstration(const RunOptions &options)
{
    auto mock = std::make_unique<MockProvider>();
    mock->delayMs = options.mockDelayMs;
    return mock;
}

/// A server, with what the window has measured of it.
std::unique_ptr<ILLMProvider> server(const RunOptions &options, const Store &store, const QString &url,
                                     const QString &model, const QString &key)
{
    auto client = std::make_unique<OpenAICompatibleProvider>();
    client->root = options.projectFolder;
    setConnection(*client, store, url, model, key);
    const QString warning = windowAdvice(serverFacts(store, url, model), url);
    if (!warning.isEmpty())
        printErrorLine(warning);
    return client;
}

/// The model that answers: the server of the options, else the one that the window has connected, else the
/// demonstration.
std::unique_ptr<ILLMProvider> makeModel(const RunOptions &options, const QString &key, const Store &store)
{
    if (options.mock)
        return demonstration(options);
    if (!options.endpoint.isEmpty())
        return server(options, store, options.endpoint, options.model,
                      options.keyVariable.isEmpty() ? CredentialStore::read(connectionTarget(options.endpoint)) : key);

    QString storedKey;
    const QJsonObject connection = storedConnection(store, storedKey);
    const QString url = connection["base_url"_L1].toString();
    if (connection["mock"_L1].toBool(true)) {
        require(store.get(u"settings"_s, u"provider"_s)["mock"_L1].toBool(true),
                u"Для подключения "_s + url
                    + u" нет ключа. Введите его в окне или возьмите демонстрационную модель: --mock"_s);
        return demonstration(options);
    }
    const QString model = connection["model"_L1].toString();
    printErrorLine(u"Модель: "_s + model + u", "_s + url + u" (подключена в окне)."_s);
    return server(options, store, url, model, storedKey);
}

int runTask(const CommandLine &line)
{
    const ProcessSignals requests;
    RunOptions options;
    QString key;
    try {
        options = parseRunOptions(line.all());
        key = givenKey(options);
    } catch (const std::exception &fault) {
        printErrorLine(textOf(fault) + u"\nСправка: vesk --help"_s);
        return usageError;
    }
    const DataFolder folder(usualDataFolder(line));
    if (folder.isTaken()) {
        printErrorLine(folder.takenText());
        return usageError;
    }
    CredentialStore::setDataFolder(folder.path());
    std::unique_ptr<ILLMProvider> model;
    RunMode mode(options, folder.path(), [&](const Store &store) -> ILLMProvider & {
        model = makeModel(options, key, store);
        return *model;
    });
    QObject::connect(&requests, &ProcessSignals::endRequested, &mode, &RunMode::interrupt);
    return mode.exec();
}

int showDifferences(const CommandLine &line)
{
    DiffOptions options;
    try {
        options = parseDiffOptions(line.all());
    } catch (const std::exception &fault) {
        printErrorLine(textOf(fault) + u"\nСправка: vesk --help"_s);
        return usageError;
    }
    const DataFolder folder(usualDataFolder(line));
    if (folder.isTaken()) {
        printErrorLine(folder.takenText());
        return usageError;
    }
    return printDifferences(options, folder.path());
}

int runLive(const CommandLine &line)
{
    const QTemporaryDir temporary;
    const QString folder = usualDataFolder(line);
    require(!folder.isEmpty(), u"Не указана папка данных"_s);
    require(QDir().mkpath(folder), u"Не удалось создать папку данных: "_s + folder);
    CredentialStore::setDataFolder(folder);
    return runLiveSmoke(line.value(u"--live-smoke"_s), temporary.path());
}

/// The interface is loaded only now: see interface.cpp.
int openInterface(int argc, char **argv)
{
    if (!hasDisplay()) {
        printErrorLine(
            u"Экрана нет, окно открыть негде. Без окна работает vesk --run ЗАПРОС, подробнее — vesk --help."_s);
        return usageError;
    }
    QLibrary library(interfaceLibrary());
    const auto open = reinterpret_cast<decltype(&veskInterface)>(library.resolve("veskInterface"));
    if (!open) {
        printErrorLine(u"Не удалось загрузить интерфейс: "_s + library.errorString());
        return usageError;
    }
    return open(argc, argv);
}

/// A mode that drives the backend as the window would, without one. The backend comes with the window's library.
int driveBackend(const CommandLine &line)
{
    QLibrary library(interfaceLibrary());
    const auto drive = reinterpret_cast<decltype(&veskDriveBackend)>(library.resolve("veskDriveBackend"));
    require(drive, u"Не удалось загрузить интерфейс: "_s + library.errorString());
    // A skill that is only tried leaves nothing in the user's data.
    const QTemporaryDir temporary;
    const QString folder = line.mode() == Mode::ProbeSkill ? line.dataFolder(temporary.path()) : usualDataFolder(line);
    return drive(&line, &folder);
}

int runMedia(const CommandLine &line)
{
    QLibrary library(mediaLibrary());
    const auto run = reinterpret_cast<decltype(&veskMediaJob)>(library.resolve("veskMediaJob"));
    require(run, u"Не удалось загрузить обработку медиа: "_s + library.errorString());
    return run(line.value(u"--media-job"_s).toUtf8().constData());
}

/// Does not come back: the worker ends the process.
void runBackground()
{
    QLibrary library(backgroundLibrary());
    const auto run = reinterpret_cast<decltype(&veskBackgroundWorker)>(library.resolve("veskBackgroundWorker"));
    require(run, u"Не удалось загрузить фон: "_s + library.errorString());
    run();
}

int runMode(const CommandLine &line)
{
    switch (line.mode()) {
    case Mode::MediaJob:
        return runMedia(line);
    case Mode::BackgroundWorker:
        runBackground();
        return 0;
    case Mode::SelfTestBackground:
        return runSelfTestBackground();
    case Mode::Help:
        printLine(helpText());
        return 0;
    case Mode::Version:
        printLine(u"VESK "_s + QStringLiteral(VESK_VERSION));
        return 0;
    case Mode::Run:
        return runTask(line);
    case Mode::ProbeMcp:
        return runProbeMcp();
    case Mode::Diff:
        return showDifferences(line);
    case Mode::LiveSmoke:
        return runLive(line);
    case Mode::ConnectQwenEnvironment:
    case Mode::ProbeSkill:
        return driveBackend(line);
    case Mode::Interface:
        break;
    }
    return usageError;
}

} // namespace

int main(int argc, char **argv)
{
    ensureStandardStreams();
    ProcessSignals::ignoreBrokenPipes();
    if (CommandLine(plainArguments(argc, argv)).mode() == Mode::Interface)
        return openInterface(argc, argv);
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
