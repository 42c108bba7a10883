#pragma once

#include "task_graph.h"

#include <QByteArray>
#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QString>

#include <functional>

namespace vesk {

/// Keeps the compact JSON text of values that rarely change, so that storing the state of a long run costs the
/// serialisation of what changed and one concatenation.
class TaskRecord {
public:
    /// Forgets everything; the next text is made anew.
    void clear();

    /// The run record without "context" and "system_prompt", "output" cut to "summary", "verdict" and "issues".
    static QJsonObject slimRun(QJsonObject run);

    /// Makes the texts of new and changed nodes.
    void takeNodes(const QList<Node> &nodes);
    QByteArray graph(const QList<Node> &nodes);
    QByteArray runs(const QList<QJsonObject> &runs);
    /// The text of one of the large objects of the state, kept under its name.
    const QByteArray &object(const QString &name, const QJsonObject &value);

    /// Calls `write` with id and text of every node that was not written with this text before. Writes count as done
    /// only with confirm(), since the transaction round them may fail.
    void eachUnwritten(const std::function<void(const QString &, const QByteArray &)> &write);
    void confirm();

private:
    template <typename T> struct Kept {
        T value;
        QByteArray text;
        bool written = false;
    };

    QList<Kept<Node>> nodeTexts;
    QList<Kept<QJsonObject>> runTexts;
    QHash<QString, Kept<QJsonObject>> objectTexts;
};

} // namespace vesk
