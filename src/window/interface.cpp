// The window, as a library of its own: linked into the executable, what Qt Quick brings along would cost every run
// without a window 25 ms and 16 MB.

#include "backend.h"
#include "command_line.h"
#include "console.h"
#include "credential_store.h"
#include "data_folder.h"
#include "desktop.h"
#include "desktop_scheme.h"
#include "entry_points.h"
#include "helpers.h"
#include "interface_options.h"
#include "process_signals.h"
#include "roles.h"
#include "self_test_ui.h"
#include "shown_window.h"
#include "unfinished.h"
#include "window_place.h"

#include <QFont>
#include <QFontDatabase>
#include <QFontMetricsF>
#include <QGuiApplication>
#include <QIcon>
#include <QOpenGLContext>
#include <QQmlApplicationEngine>
#include <QQmlComponent>
#include <QQuickStyle>
#include <QQuickWindow>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtQml/qqmlextensionplugin.h>

#include <memory>

Q_IMPORT_QML_PLUGIN(VeskPlugin)

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

constexpr int startFailed = 1;
constexpr int usageError = 2;

/// Sets the font of the interface and returns the size in points of the one that the desktop has set.
qreal prepareFonts()
{
    const qreal desktopPoints = QGuiApplication::font().pointSizeF();
    if (qEnvironmentVariable("QT_QPA_PLATFORM") == "offscreen"_L1) {
        const QStringList files = offscreenFontFiles();
        for (const QString &file : files)
            QFontDatabase::addApplicationFont(file);
    }
    const QList<FontSubstitutes> substitutes = fontSubstitutes();
    for (const FontSubstitutes &font : substitutes)
        QFont::insertSubstitutions(font.family, font.others);
    QFont font(u"Segoe UI"_s);
    font.setPixelSize(14);
    QGuiApplication::setFont(font);
    return desktopPoints;
}

/// The first text in a font costs milliseconds: the time in which the types of the scene are being loaded is free.
void warmFonts()
{
    for (const QFont::Weight weight : {QFont::Normal, QFont::DemiBold, QFont::Bold}) {
        QFont font = QGuiApplication::font();
        font.setWeight(weight);
        QFontMetricsF(font).horizontalAdvance(u"VESK Привет"_s);
    }
}

/// Without a graphics library that works (a broken driver, a screen far away) Qt would end the program at the first
/// frame. Before the first window only.
void chooseRenderer()
{
    if (qEnvironmentVariableIsSet("QT_QUICK_BACKEND") || qEnvironmentVariableIsSet("QSG_RHI_BACKEND"))
        return;
    QOpenGLContext tried;
    if (usesOpenGL() && (!tried.create() || tried.format().majorVersion() < 2))
        QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
}

int showWindow(const CommandLine &line, const DataFolder &folder, const QTemporaryDir &temporary, qreal desktopPoints)
{
    // Outlives the scene, and is made while a thread of the scene's engine loads its types.
    std::unique_ptr<Backend> owned;
    QQmlApplicationEngine engine;
    QQmlComponent types(&engine);
    types.loadFromModule("Vesk", "Main", QQmlComponent::Asynchronous);
    owned = std::make_unique<Backend>(folder.path());
    Backend &backend = *owned;
    warmFonts();
    chooseRenderer();
    const ProcessSignals requests;
    QObject::connect(&requests, &ProcessSignals::endRequested, qApp, [&backend] {
        backend.finish(); // a commit under way would keep the window open
        QCoreApplication::quit();
    });

    QObject::connect(
        &engine, &QQmlApplicationEngine::objectCreationFailed, qApp, [] { QCoreApplication::exit(startFailed); },
        Qt::QueuedConnection);
    QObject::connect(qApp, &QCoreApplication::aboutToQuit, &backend, &Backend::finish);
    WindowPlace place(folder.path());
    const bool attended = !isUnattended(line);
    QVariantMap properties{{u"backend"_s, QVariant::fromValue(&backend)}};
    if (attended) {
        properties.insert(place.initialProperties());
        properties.insert(u"desktopPoints"_s, desktopPoints);
        properties.insert(u"desktopFileDialogs"_s, hasFileDialogs(QCoreApplication::libraryPaths()));
    }
    engine.setInitialProperties(properties);
    engine.loadFromModule("Vesk", "Main");
    if (attended)
        place.follow(firstWindow(engine));
    const DesktopScheme scheme;
    const auto tellScheme = [&] {
        if (QQuickWindow *window = firstWindow(engine))
            window->setProperty("portalScheme", int(scheme.scheme()));
    };
    QObject::connect(&scheme, &DesktopScheme::changed, &engine, tellScheme);
    const ShownWindow shown(folder.path(), firstWindow(engine));
    applyWindowOptions(line, engine);
    armTimedOptions(line, engine, backend);
    SelfTestUi selfTest(engine, backend, temporary.path());
    if (line.has(u"--self-test-ui"_s))
        selfTest.begin(line.value(u"--self-test-ui"_s), line.has(u"--workflow-demo"_s));
    const int code = QCoreApplication::exec();
    finishLoaders(engine);
    return code;
}

int runInterface(const CommandLine &line, qreal desktopPoints)
{
    const QTemporaryDir temporary;
    const bool leavesNoTrace = line.has(u"--self-test-ui"_s);
    const DataFolder folder(line.dataFolder(
        leavesNoTrace ? temporary.path() : QStandardPaths::writableLocation(QStandardPaths::AppLocalDataLocation)));
    if (folder.isTaken()) {
        if (!isUnattended(line) && ShownWindow::call(folder.path()))
            return 0;
        printErrorLine(folder.takenText());
        return usageError;
    }
    CredentialStore::setDataFolder(folder.path());
    return showWindow(line, folder, temporary, desktopPoints);
}

} // namespace

extern "C" Q_DECL_EXPORT int veskInterface(int argc, char **argv)
{
    registerPrompts();
    QGuiApplication application(argc, argv);
    QCoreApplication::setOrganizationName(u"VESK"_s);
    QCoreApplication::setApplicationName(u"VESK"_s);
    QGuiApplication::setDesktopFileName(u"vesk"_s);
    QGuiApplication::setWindowIcon(QIcon(u":/assets/vesk-logo.png"_s));
    QQuickStyle::setStyle(u"Basic"_s);
    // A graphics card would draw letters from their outlines: small ones become thin and blurred by that.
    QQuickWindow::setTextRenderType(QQuickWindow::NativeTextRendering);
    const qreal desktopPoints = prepareFonts();
    try {
        return runInterface(CommandLine(QCoreApplication::arguments().sliced(1)), desktopPoints);
    } catch (const std::exception &fault) {
        qCritical("%s", fault.what());
        return startFailed;
    }
}
