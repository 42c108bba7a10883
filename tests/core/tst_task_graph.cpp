#include "error_of.h"
#include "json_text.h"
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

} // namespace

class TaskGraphTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void aPlanIsRefusedWithItsFirstFault()
    {
        const QString node = u"{'id':'%1','title':'Узел','kind':'code','dependencies':[%2]%3}"_s;
        const auto one = [&](const QString &more) { return u'[' + node.arg(u"a"_s, QString(), more) + u']'; };
        // "a" for a node, "a:b" for one that waits for b.
        const auto plan = [&](const QString &text) {
            QStringList list;
            for (const QString &entry : text.split(u' '))
                list.append(node.arg(entry.section(u':', 0, 0), entry.section(u':', 1), QString()));
            return u'[' + list.join(u',') + u']';
        };
        QStringList many;
        while (many.size() < 64)
            many.append(QString::number(many.size()));
        for (const auto &[text, fault] : {
                 std::pair{u"[]"_s, u"Graph requires 1..64 nodes"_s},
                 {plan(many.join(u' ')), QString()},
                 {plan(many.join(u' ') + u" 64"_s), u"Graph requires 1..64 nodes"_s},
                 {u"['x']"_s, u"Node must be object"_s},
                 {plan({}), u"Duplicate/empty node ID"_s},
                 {plan(u"a a"_s), u"Duplicate/empty node ID"_s},
                 {one(u",'kind':'Code'"_s), u"Unsupported node kind"_s},
                 {one(u",'title':''"_s), u"Node needs title"_s},
                 {one(u",'input':{'min_chars':60000}"_s), QString()},
                 {one(u",'input':{'min_chars':60001}"_s),
                  u"Split long documents into chapters of at most 60000 characters each"_s},
                 {plan(u"a:'a'"_s), u"Dependency cycle"_s},
                 {plan(u"a:'b' b:'c' c:'a'"_s), u"Dependency cycle"_s},
                 {plan(u"a b:'a' c:'a' d:'b','c'"_s), QString()},
                 {plan(u"a:'x'"_s), u"Missing dependency: x"_s},
             })
            QCOMPARE(errorOf([&] { TaskGraph().load(array(text)); }), fault);
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
