// The desktop's colour scheme, from a settings portal on a bus of the test's own.

#include "desktop_scheme.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QProcess>
#include <QTest>

using vesk::DesktopScheme;

class Portal : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.portal.Settings")
public:
    uint scheme = 2;
public Q_SLOTS:
    QDBusVariant Read(const QString &group, const QString &key)
    {
        const bool known = group == "org.freedesktop.appearance" && key == "color-scheme";
        return QDBusVariant(QVariant::fromValue(QDBusVariant(known ? scheme : 1)));
    }
Q_SIGNALS:
    void SettingChanged(const QString &group, const QString &key, const QDBusVariant &value);
};

class DesktopSchemeTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void theSchemeIsAskedAndFollowed()
    {
        QProcess bus;
        bus.start("dbus-daemon", {"--session", "--nofork", "--print-address"});
        if (!bus.waitForStarted() || !bus.waitForReadyRead())
            QSKIP("There is no dbus-daemon");
        const QByteArray address = bus.readLine().trimmed();
        qputenv("DBUS_SESSION_BUS_ADDRESS", address);
        Portal portal;
        QDBusConnection desktop = QDBusConnection::connectToBus(QString::fromUtf8(address), "desktop");
        QVERIFY(desktop.registerService("org.freedesktop.portal.Desktop"));
        QVERIFY(desktop.registerObject("/org/freedesktop/portal/desktop", &portal, QDBusConnection::ExportAllContents));

        const DesktopScheme scheme;
        QTRY_COMPARE(scheme.scheme(), Qt::ColorScheme::Light);
        Q_EMIT portal.SettingChanged("org.freedesktop.appearance", "contrast", QDBusVariant(0U));
        Q_EMIT portal.SettingChanged("org.freedesktop.appearance", "color-scheme", QDBusVariant(1U));
        QTRY_COMPARE(scheme.scheme(), Qt::ColorScheme::Dark);
        Q_EMIT portal.SettingChanged("org.freedesktop.appearance", "color-scheme", QDBusVariant(0U));
        QTRY_COMPARE(scheme.scheme(), Qt::ColorScheme::Unknown);
        bus.terminate();
        bus.waitForFinished();
    }
};

QTEST_GUILESS_MAIN(DesktopSchemeTest)

#include "tst_desktop_scheme.moc"
