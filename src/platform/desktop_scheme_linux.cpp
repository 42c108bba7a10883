// The desktop's colour scheme from its settings portal.

#include "desktop_scheme.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

const QString service = u"org.freedesktop.portal.Desktop"_s;
const QString path = u"/org/freedesktop/portal/desktop"_s;
const QString interface = u"org.freedesktop.portal.Settings"_s;
const QString appearance = u"org.freedesktop.appearance"_s;
const QString colorScheme = u"color-scheme"_s;

} // namespace

DesktopScheme::DesktopScheme(QObject *parent)
    : QObject(parent)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return;
    bus.connect(service, path, interface, u"SettingChanged"_s, this, SLOT(takeChange(QString, QString, QDBusVariant)));
    QDBusMessage question = QDBusMessage::createMethodCall(service, path, interface, u"Read"_s);
    question.setArguments({appearance, colorScheme});
    const auto *call = new QDBusPendingCallWatcher(bus.asyncCall(question), this);
    connect(call, &QDBusPendingCallWatcher::finished, this, &DesktopScheme::takeAnswer);
}

void DesktopScheme::takeChange(const QString &group, const QString &key, const QDBusVariant &value)
{
    if (group == appearance && key == colorScheme)
        take(value.variant());
}

void DesktopScheme::takeAnswer(QDBusPendingCallWatcher *call)
{
    const QDBusPendingReply<QDBusVariant> answer = *call;
    if (answer.isValid())
        take(answer.value().variant());
    call->deleteLater();
}

/// 1 for dark, 2 for light. "Read" packs it twice.
void DesktopScheme::take(QVariant value)
{
    while (value.canConvert<QDBusVariant>())
        value = value.value<QDBusVariant>().variant();
    const uint number = value.toUInt();
    const Qt::ColorScheme next = number == 1 ? Qt::ColorScheme::Dark
        : number == 2                        ? Qt::ColorScheme::Light
                                             : Qt::ColorScheme::Unknown;
    if (next == told)
        return;
    told = next;
    Q_EMIT changed();
}

} // namespace vesk
