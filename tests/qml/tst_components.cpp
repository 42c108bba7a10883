// Runs the tests of the scenes, tst_*.qml, on the window's own module.

#include "backend.h"
#include "keyboard.h"

#include <QAccessible>
#include <QGuiApplication>
#include <QQuickStyle>
#include <QTemporaryDir>
#include <QtQml/qqml.h>
#include <QtQml/qqmlextensionplugin.h>
#include <QtQuickTest/quicktest.h>

#include <memory>

Q_IMPORT_QML_PLUGIN(VeskPlugin)

/// A backend whose properties and operations a test replaces by its own of the same names.
class StandIn : public vesk::Backend {
    Q_OBJECT
public:
    StandIn()
        : StandIn(std::make_unique<QTemporaryDir>())
    {
    }

private:
    explicit StandIn(std::unique_ptr<QTemporaryDir> dataFolder)
        : Backend(dataFolder->path())
        , folder(std::move(dataFolder))
    {
    }

    std::unique_ptr<QTemporaryDir> folder;
};

class Setup : public QObject {
    Q_OBJECT
public Q_SLOTS:
    static void applicationAvailable()
    {
        QQuickStyle::setStyle(QStringLiteral("Basic"));
        QAccessible::setActive(true);
        qmlRegisterType<StandIn>("Vesk.Test", 1, 0, "StandIn");
        qmlRegisterType<Keyboard>("Vesk.Test", 1, 0, "Keyboard");
    }
};

QUICK_TEST_MAIN_WITH_SETUP(components, Setup)

#include "tst_components.moc"
