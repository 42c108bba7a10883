// Runs the tests of the scenes, tst_*.qml, on the window's own module.

#include <QGuiApplication>
#include <QQuickStyle>
#include <QtQml/qqmlextensionplugin.h>
#include <QtQuickTest/quicktest.h>

Q_IMPORT_QML_PLUGIN(VeskPlugin)

class Setup : public QObject {
    Q_OBJECT
public Q_SLOTS:
    static void applicationAvailable() { QQuickStyle::setStyle(QStringLiteral("Basic")); }
};

QUICK_TEST_MAIN_WITH_SETUP(components, Setup)

#include "tst_components.moc"
