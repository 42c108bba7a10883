#pragma once

#include <QObject>
#include <QStringList>
#include <QTimer>

namespace vesk {

class Workspace;

/// The user's edits are taken as they are, or undone, a few milliseconds at a time: there may be as many as a change of
/// branch leaves. What a few take is done at once.
class EditSettling : public QObject {
    Q_OBJECT
public:
    explicit EditSettling(Workspace &workspace);

    /// One file that can't be settled doesn't keep the others from it.
    void begin(const QStringList &files, bool takesTheirs);
    bool isSettling() const { return timer.isActive(); }

Q_SIGNALS:
    /// All that can be is settled; a line for each file that can't.
    void ended(const QStringList &faults);

private:
    void goOn();

    Workspace &workspace;
    QTimer timer;
    QStringList paths;
    QStringList faults;
    qsizetype next = 0;
    bool takes = false;
};

} // namespace vesk
