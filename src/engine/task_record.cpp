// The state of a task as text, made anew only where it has changed.

#include "task_record.h"

#include "helpers.h"

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

QByteArray joined(const QList<QByteArray> &texts)
{
    return '[' + texts.join(',') + ']';
}

} // namespace

void TaskRecord::clear()
{
    nodeTexts.clear();
    runTexts.clear();
    objectTexts.clear();
}

QJsonObject TaskRecord::slimRun(QJsonObject run)
{
    run.remove("context"_L1);
    run.remove("system_prompt"_L1);
    if (run.contains("output"_L1)) {
        const QJsonObject full = run["output"_L1].toObject();
        QJsonObject cut;
        for (const QString &key : {u"summary"_s, u"verdict"_s, u"issues"_s}) {
            if (full.contains(key))
                cut[key] = full[key];
        }
        run["output"_L1] = cut;
    }
    return run;
}

void TaskRecord::takeNodes(const QList<Node> &nodes)
{
    nodeTexts.resize(nodes.size());
    for (qsizetype i = 0; i < nodes.size(); ++i) {
        Kept<Node> &kept = nodeTexts[i];
        // Objects that still share their data compare in no time.
        if (kept.text.isEmpty() || kept.value != nodes[i])
            kept = {nodes[i], jsonBytes(nodes[i].toJson()), false};
    }
}

QByteArray TaskRecord::graph(const QList<Node> &nodes)
{
    takeNodes(nodes);
    QList<QByteArray> texts;
    texts.reserve(nodeTexts.size());
    for (const Kept<Node> &kept : std::as_const(nodeTexts))
        texts.append(kept.text);
    return joined(texts);
}

QByteArray TaskRecord::runs(const QList<QJsonObject> &runs)
{
    runTexts.resize(runs.size());
    QList<QByteArray> texts;
    texts.reserve(runs.size());
    for (qsizetype i = 0; i < runs.size(); ++i) {
        Kept<QJsonObject> &kept = runTexts[i];
        if (kept.text.isEmpty() || kept.value != runs[i])
            kept = {runs[i], jsonBytes(slimRun(runs[i])), false};
        texts.append(kept.text);
    }
    return joined(texts);
}

const QByteArray &TaskRecord::object(const QString &name, const QJsonObject &value)
{
    Kept<QJsonObject> &kept = objectTexts[name];
    if (kept.text.isEmpty() || kept.value != value)
        kept = {value, jsonBytes(value), false};
    return kept.text;
}

void TaskRecord::eachUnwritten(const std::function<void(const QString &, const QByteArray &)> &write)
{
    for (const Kept<Node> &kept : std::as_const(nodeTexts)) {
        if (!kept.written)
            write(kept.value.id, kept.text);
    }
}

void TaskRecord::confirm()
{
    for (Kept<Node> &kept : nodeTexts)
        kept.written = true;
}

} // namespace vesk
