#pragma once

#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QTimer>

class QQmlApplicationEngine;

namespace vesk {

class Backend;

/// Drives the whole application once without a person: a project, the calculator on the demonstration model with its
/// question answered, every page of the window in a picture, a task renamed. Ends the event loop with
///
///   0  every step passed                     4  a picture could not be saved
///   1  no folder for the pictures            5  60 s have passed
///   2  the task did not complete             6  the new title is not in the list of tasks
///   3  there is no window                    7  the field for the title is not there
class SelfTestUi : public QObject {
    Q_OBJECT
public:
    /// The project is made in "project" of the temporary folder.
    SelfTestUi(const QQmlApplicationEngine &engine, Backend &backend, const QString &temporaryFolder);

    /// Pictures and "task-state.json" go to `folder`. `withWorkflow` adds the example of a user-made team first.
    void begin(const QString &folder, bool withWorkflow);

private:
    void capture();
    void captureQuestion(const QString &decision);
    void finish(const QString &status);
    void writeState() const;
    void showNextPage();
    void rename();
    bool grab(const QString &name) const;

    const QQmlApplicationEngine &engine;
    Backend &backend;
    QString temporary;
    QString folder;
    QSet<QString> captured;
    QStringList pages;
    QStringList names;
    QTimer pageTimer;
};

} // namespace vesk
