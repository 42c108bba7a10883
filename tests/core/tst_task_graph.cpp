#include "error_of.h"
#include "task_graph.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

QJsonObject node(const QString &id, const QStringList &dependencies = {}, int priority = 1,
                 const QString &status = u"QUEUED"_s)
{
    return {{u"id"_s, id},
            {u"title"_s, u"Узел "_s + id},
            {u"kind"_s, u"code"_s},
            {u"status"_s, status},
            {u"dependencies"_s, QJsonArray::fromStringList(dependencies)},
            {u"priority"_s, priority}};
}

QJsonObject with(QJsonObject object, const QString &key, const QJsonValue &value)
{
    object[key] = value;
    return object;
}

QJsonArray manyNodes(int count)
{
    QJsonArray array;
    for (int i = 0; i < count; ++i)
        array.append(node(QString::number(i)));
    return array;
}

} // namespace

class TaskGraphTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void aFaultyPlanIsRefusedWithItsFirstFault_data()
    {
        const auto chars = [](const QJsonValue &count) {
            return QJsonArray{with(node(u"a"_s), u"input"_s, QJsonObject{{u"min_chars"_s, count}})};
        };
        const QString tooLong = u"Split long documents into chapters of at most 60000 characters each"_s;

        QTest::addColumn<QJsonArray>("nodes");
        QTest::addColumn<QString>("fault");
        QTest::newRow("no node") << QJsonArray() << u"Graph requires 1..64 nodes"_s;
        QTest::newRow("64 nodes") << manyNodes(64) << QString();
        QTest::newRow("65 nodes") << manyNodes(65) << u"Graph requires 1..64 nodes"_s;
        QTest::newRow("no object") << QJsonArray{u"x"_s} << u"Node must be object"_s;
        QTest::newRow("empty id") << QJsonArray{node({})} << u"Duplicate/empty node ID"_s;
        QTest::newRow("id twice") << QJsonArray{node(u"a"_s), node(u"a"_s)} << u"Duplicate/empty node ID"_s;
        QTest::newRow("capital kind") << QJsonArray{with(node(u"a"_s), u"kind"_s, u"Code"_s)}
                                      << u"Unsupported node kind"_s;
        QTest::newRow("no title") << QJsonArray{with(node(u"a"_s), u"title"_s, u""_s)} << u"Node needs title"_s;
        QTest::newRow("60000 characters") << chars(60000) << QString();
        QTest::newRow("60001 characters") << chars(60001) << tooLong;
        QTest::newRow("itself") << QJsonArray{node(u"a"_s, {u"a"_s})} << u"Dependency cycle"_s;
        QTest::newRow("cycle") << QJsonArray{node(u"a"_s, {u"b"_s}), node(u"b"_s, {u"c"_s}), node(u"c"_s, {u"a"_s})}
                               << u"Dependency cycle"_s;
        QTest::newRow("diamond") << QJsonArray{node(u"a"_s), node(u"b"_s, {u"a"_s}), node(u"c"_s, {u"a"_s}),
                                               node(u"d"_s, {u"b"_s, u"c"_s})}
                                 << QString();
        QTest::newRow("unknown dependency") << QJsonArray{node(u"a"_s, {u"x"_s})} << u"Missing dependency: x"_s;
    }

    void aFaultyPlanIsRefusedWithItsFirstFault()
    {
        QFETCH(QJsonArray, nodes);
        QFETCH(QString, fault);
        QCOMPARE(errorOf([&] { TaskGraph().load(nodes); }), fault);
    }

    void readyGivesWhatMayStartByPriority()
    {
        TaskGraph graph;
        graph.load({node(u"a"_s), node(u"b"_s, {}, 2), node(u"c"_s), node(u"d"_s, {u"e"_s}),
                    node(u"e"_s, {}, 0, u"FAILED"_s), node(u"f"_s, {u"g"_s}, 5, u"READY"_s),
                    node(u"g"_s, {}, 1, u"COMPLETED"_s), node(u"h"_s, {}, 9, u"RUNNING"_s),
                    node(u"i"_s, {}, 9, u"BLOCKED"_s)});
        QCOMPARE(graph.ready(), (QList<int>{5, 1, 0, 2}));
    }

    void aGraphIsCompleteWhenAllNodesAre()
    {
        TaskGraph graph;
        QVERIFY(!graph.complete());
        graph.load({node(u"a"_s, {}, 1, u"COMPLETED"_s), node(u"b"_s)});
        QVERIFY(!graph.complete());
        graph.nodes[1].status = u"COMPLETED"_s;
        QVERIFY(graph.complete());
        QVERIFY(graph.ready().isEmpty());
    }
};

QTEST_APPLESS_MAIN(TaskGraphTest)
#include "tst_task_graph.moc"
