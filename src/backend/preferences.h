#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QObject>
#include <QString>
#include <QStringList>

namespace vesk {

class Store;

/// What the user has set of the window, the agents and the tools: one document, row "workspace-ui" of "settings".
class Preferences : public QObject {
    Q_OBJECT
public:
    /// Reads the document; what has to be true until it is switched off is filled in.
    explicit Preferences(Store &store);

    const QJsonObject &document() const { return values; }
    QJsonValue value(const QString &key) const { return values.value(key); }
    /// The skill that the user attached to a role, cut to what a request takes of it.
    QString skillOf(const QString &role) const;

    /// Sets one of the keys that the window may set. Throws "Неизвестная настройка" or "Код фона слишком большой".
    void set(const QString &key, const QJsonValue &value);
    /// Stores the document and takes it over; when it can't be stored, nothing has changed.
    void savePreferences(const QJsonObject &next);

Q_SIGNALS:
    void changed();

private:
    Store &store;
    QJsonObject values;
};

/// What of the preferences a run goes by.
struct RunPreferences {
    bool computerAccess = false; ///< Programs run without a question.
    bool automaticRouting = true; ///< The chief agent decides how a run goes on.
    QStringList disabledAgents;
    QJsonObject roleSkills;
    QJsonArray agentNetwork;
};
RunPreferences runPreferences(const QJsonObject &preferences);

} // namespace vesk
