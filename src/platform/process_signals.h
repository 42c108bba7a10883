#pragma once

#include <QObject>

namespace vesk {

/// Turns the system's requests to end (Ctrl-C, a shutdown) into a signal in the event loop. One object per process.
class ProcessSignals : public QObject {
    Q_OBJECT
public:
    explicit ProcessSignals(QObject *parent = nullptr);
    ~ProcessSignals() override;

    /// Writing to a reader that has gone away fails instead of ending the process.
    static void ignoreBrokenPipes();

Q_SIGNALS:
    void endRequested();
};

} // namespace vesk
