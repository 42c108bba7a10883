#pragma once

#include <QObject>

namespace vesk {

/// Turns the system's requests to end (Ctrl-C, a shutdown, a terminal that is closed) into a signal in the event loop:
/// from construction on, though the loop may start later. One object per process.
///
/// Whoever started the program so that it outlives its terminal (nohup) keeps that.
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
