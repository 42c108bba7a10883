#pragma once

#include <QObject>

class QDBusPendingCallWatcher;
class QDBusVariant;

namespace vesk {

/// Whether the desktop is to look light or dark, as it tells every program in the same way; Qt asks only where it has a
/// part for that very desktop. A library of its own: without a window nothing of it is loaded.
///
/// On Linux this is the settings portal on the session's bus. It is asked without waiting, and listened to; where there
/// is none, or it has no preference, the scheme stays unknown.
class DesktopScheme : public QObject {
    Q_OBJECT
public:
    explicit DesktopScheme(QObject *parent = nullptr);

    Qt::ColorScheme scheme() const { return told; }

Q_SIGNALS:
    void changed();

private Q_SLOTS:
    void takeChange(const QString &group, const QString &key, const QDBusVariant &value);
    void takeAnswer(QDBusPendingCallWatcher *call);

private:
    void take(QVariant value);

    Qt::ColorScheme told = Qt::ColorScheme::Unknown;
};

} // namespace vesk
