// What the command line asks of the window.

#include "interface_options.h"

#include "backend.h"
#include "command_line.h"

#include <QCoreApplication>
#include <QImage>
#include <QQmlApplicationEngine>
#include <QQuickWindow>
#include <QTimer>
#include <QUrl>

#include <chrono>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace vesk {

namespace {

constexpr auto screenshotDelay = 1500ms;
constexpr auto smokeTestTime = 2s;
constexpr int compactWidth = 1000;
constexpr int compactHeight = 720;

int saveScreenshot(const QQmlApplicationEngine &engine, const QString &file)
{
    QQuickWindow *window = firstWindow(engine);
    return window && window->grabWindow().save(file) ? 0 : 1;
}

} // namespace

bool isUnattended(const CommandLine &line)
{
    for (const QString &option : {u"--self-test-ui"_s, u"--smoke-test"_s, u"--screenshot"_s, u"--compact-ui"_s}) {
        if (line.has(option))
            return true;
    }
    return false;
}

QQuickWindow *firstWindow(const QQmlApplicationEngine &engine)
{
    const QList<QObject *> roots = engine.rootObjects();
    return roots.isEmpty() ? nullptr : qobject_cast<QQuickWindow *>(roots.first());
}

void applyWindowOptions(const CommandLine &line, const QQmlApplicationEngine &engine)
{
    const QList<QObject *> roots = engine.rootObjects();
    if (roots.isEmpty())
        return;
    QObject *window = roots.first();
    if (line.has(u"--settings"_s))
        window->setProperty("page", u"Настройки агентов"_s);
    if (line.has(u"--settings-agent"_s))
        window->setProperty("settingsAgent", line.value(u"--settings-agent"_s));
    if (line.has(u"--compact-ui"_s)) {
        window->setProperty("width", compactWidth);
        window->setProperty("height", compactHeight);
    }
}

void armTimedOptions(const CommandLine &line, const QQmlApplicationEngine &engine, Backend &backend)
{
    if (line.has(u"--attach-file"_s)) {
        const QString file = QUrl::fromLocalFile(line.value(u"--attach-file"_s)).toString();
        QTimer::singleShot(0, &backend, [&backend, file] { backend.attachFiles({file}); });
    }
    // From two seconds on, a timer may else come a twentieth early.
    if (line.has(u"--smoke-test"_s))
        QTimer::singleShot(smokeTestTime, Qt::PreciseTimer, qApp, [] { QCoreApplication::exit(0); });
    if (line.has(u"--screenshot"_s)) {
        const QString file = line.value(u"--screenshot"_s);
        QTimer::singleShot(screenshotDelay, &engine,
                           [&engine, file] { QCoreApplication::exit(saveScreenshot(engine, file)); });
    }
}

} // namespace vesk
