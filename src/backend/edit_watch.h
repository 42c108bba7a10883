#pragma once

#include "workspace.h"

#include <QJsonArray>
#include <QObject>
#include <QTimer>
#include <QVariant>

namespace vesk {

/// Looks through the project's files for what the user has changed, a few milliseconds at a time, so that the interface
/// stays quick with any number of them.
class EditWatch : public QObject {
    Q_OBJECT
public:
    explicit EditWatch(const Workspace &workspace);

    /// Begins to look, anew if it is looking already.
    void look();
    /// What the last look has found, each as {"path", "text": "изменён a.html", "kind": "изменён"}.
    QVariantList edits() const { return found; }
    /// The project is closed, or its edits are settled.
    void forget();

Q_SIGNALS:
    /// A look has ended and `edits` is new.
    void changed();
    /// The look has ended before its time: `edits` stays as it was.
    void failed(const QString &text);

private:
    void lookOn();

    const Workspace &workspace;
    QTimer timer;
    QJsonArray records;
    qsizetype next = 0;
    QVariantList finding;
    QVariantList found;
};

} // namespace vesk
