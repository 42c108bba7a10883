// A whole unattended run against a live model.

#include "live_smoke.h"

#include "core.h"
#include "credential_store.h"
#include "endpoints.h"
#include "openai_provider.h"
#include "phases.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QTimer>

#include <chrono>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr int usageError = 2;
constexpr int smokeTimedOut = 3;
constexpr auto longestRun = std::chrono::seconds(900);

QString request()
{
    return u"Создай качественную игру змейка в одном локальном index.html: чёрно-белое оформление, плавная анимация, "
           "счёт, пауза, перезапуск, клавиши стрелок и экранные кнопки. Без библиотек, сборки и сети. Технические "
           "решения выбери сам, уточнения не нужны."_s;
}

QString answer()
{
    return u"Исправьте все технические ошибки самостоятельно. Один локальный index.html, без внешних библиотек и "
           "установки. Управление стрелками и экранными кнопками, счёт, пауза, перезапуск, анимация. Выберите "
           "разумные значения самостоятельно."_s;
}

bool isLogged(const QString &type)
{
    static const QStringList logged{u"PhaseChanged"_s, u"AgentStarted"_s, u"AgentFinished"_s, u"RetryScheduled"_s};
    return logged.contains(type);
}

void writeResult(const QString &folder, const QJsonObject &state)
{
    QFile file(folder + u"/live-result.json"_s);
    if (file.open(QIODevice::WriteOnly))
        file.write(QJsonDocument(state).toJson(QJsonDocument::Indented));
}

/// An exception must not find its way through the event loop; it ends the process as anywhere else.
template <typename Work> void orLeave(Work &&work)
{
    try {
        work();
    } catch (const std::exception &fault) {
        qCritical("%s", fault.what());
        QCoreApplication::exit(1);
    }
}

/// Answers the question once the engine's step that asked it is over.
void answerLater(Engine &engine)
{
    if (engine.phaseCode() != Phase::clarification)
        return;
    QTimer::singleShot(0, &engine, [&engine] {
        if (engine.phaseCode() == Phase::clarification)
            orLeave([&] { engine.clarify(answer()); });
    });
}

} // namespace

int runLiveSmoke(const QString &folder, const QString &temporaryFolder)
{
    if (folder.isEmpty())
        return usageError;
    OpenAICompatibleProvider provider;
    provider.url = endpoint(u"Alem Plus"_s);
    provider.model = u"qwen3-8"_s;
    provider.timeoutMs = 180000;
    provider.temperature = 0.2;
    provider.key = CredentialStore::read(connectionTarget(provider.url));
    if (provider.key.isEmpty())
        return usageError;

    Core core(temporaryFolder + u"/live.sqlite"_s, &provider);
    core.workspace.open(QDir().absoluteFilePath(folder), u"live-smoke"_s);
    Engine &engine = core.engine;
    QElapsedTimer clock;
    clock.start();
    QObject::connect(&core.events, &EventBus::event, &engine, [&](const QJsonObject &event) {
        const QString type = event["type"_L1].toString();
        if (isLogged(type))
            qInfo("%lld %s %s", static_cast<long long>(clock.elapsed()), qPrintable(type),
                  qPrintable(event["message"_L1].toString()));
    });
    QObject::connect(&engine, &Engine::changed, &engine, [&] { answerLater(engine); });
    QObject::connect(&engine, &Engine::finished, &engine, [&](const QString &status) {
        writeResult(folder, engine.snapshot());
        qInfo("RESULT %s elapsed_ms %lld", qPrintable(status), static_cast<long long>(clock.elapsed()));
        QCoreApplication::exit(status == Phase::completed ? 0 : 1);
    });
    QTimer::singleShot(longestRun, &engine, [&] {
        engine.cancel();
        QCoreApplication::exit(smokeTimedOut);
    });
    QTimer::singleShot(0, &engine, [&] { orLeave([&] { engine.start(request(), false, defaultTaskTokens, {}); }); });
    return QCoreApplication::exec();
}

} // namespace vesk
