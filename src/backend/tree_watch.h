#pragma once

#include "take_in.h"

#include <QObject>
#include <QStringList>
#include <QThreadPool>
#include <QTimer>

#include <memory>

namespace vesk {

class Workspace;

/// What files a large project has that is taken in only as it is touched: looked through a few milliseconds at a time,
/// and put on a map beside the interface. Main thread only.
class TreeWatch : public QObject {
    Q_OBJECT
public:
    explicit TreeWatch(const Workspace &workspace);
    ~TreeWatch() override;

    /// Begins to look, anew if it is looking already; of a project that is not taken in so there is nothing to know.
    void look();

    /// The first 100,000 files, and the map of them; empty until they are known.
    const QStringList &files() const { return found; }
    const QString &map() const { return drawn; }

Q_SIGNALS:
    void changed();

private:
    void lookOn();
    void draw();

    const Workspace &workspace;
    std::unique_ptr<TakeIn> scan;
    QTimer timer;
    QThreadPool pool;
    QStringList found;
    QString drawn;
    quint32 generation = 0;
};

} // namespace vesk
