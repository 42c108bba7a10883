#include "json_text.h"

#include "code_answer.h"
#include "file_excerpt.h"
#include "request_room.h"
#include "task_graph.h"

#include <QRegularExpression>
#include <QTest>

#include <array>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

QString numbered(int lines)
{
    QString text;
    for (int i = 1; i <= lines; ++i)
        text += u"const name%1 = %1\n"_s.arg(i);
    return text;
}

QJsonObject texts(const QString &key, int chars)
{
    return {{key, QString(chars, u'\n') + u"end"_s}}; // a line end takes two characters of JSON
}

} // namespace

class RequestRoomTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void partsGiveWayInTheirOrder()
    {
        const QJsonObject resolved{{u"status"_s, u"RESOLVED"_s}, {u"text"_s, QString(9000, u'r')}};
        const QJsonObject open{{u"status"_s, u"OPEN"_s}, {u"text"_s, QString(9000, u'o')}};
        const QJsonObject artifact{
            {u"node"_s, texts(u"instructions"_s, 3000)},
            {u"open_fixes"_s, QJsonArray{resolved, open, resolved}},
            {u"graph"_s, QJsonArray{QJsonObject{{u"output"_s, texts(u"stdout"_s, 10000)}}}},
            {u"dependencies"_s, QJsonArray{texts(u"content"_s, 5000), texts(u"summary"_s, 5000)}},
            {u"project_files"_s, QJsonArray{texts(u"content"_s, 3000), texts(u"content"_s, 3000)}},
            {u"file"_s, texts(u"content"_s, 5000)},
            {u"notes"_s, QJsonArray{QString(5000, u'n')}},
        };
        const QStringList order{u"open_fixes"_s,    u"graph"_s, u"dependencies/1"_s, u"dependencies/0"_s,
                                u"project_files"_s, u"file"_s,  u"notes"_s};
        const auto part = [](const QJsonObject &whole, const QString &at) {
            const QJsonValue found = whole[at.section(u'/', 0, 0)];
            return at.contains(u'/') ? found[at.section(u'/', 1).toInt()] : found;
        };
        const qsizetype all = json(artifact).size();
        for (qsizetype room = all; room > 11000; room -= 1500) {
            const QJsonObject fit = fitted(artifact, room, {{1, 2}, {}, {}});
            QVERIFY2(json(fit).size() <= room, qPrintable(QString::number(room)));
            QCOMPARE(fit[u"node"_s], artifact[u"node"_s]);
            // What is cut is the beginning of the order, and only its last part still has what it could give.
            qsizetype cut = 0;
            while (cut < order.size() && part(fit, order[cut]) != part(artifact, order[cut]))
                ++cut;
            for (qsizetype i = cut; i < order.size(); ++i)
                QVERIFY2(part(fit, order[i]) == part(artifact, order[i]),
                         qPrintable(order[i] + u" before "_s + order[cut]));
            QVERIFY(json(fit).size() > room - 9200);
        }
        QCOMPARE(fitted(artifact, all, {}), artifact);
        const QJsonObject fit = fitted(artifact, all - 35000, {{1, 2}, {}, {}});
        QCOMPARE(fit[u"open_fixes"_s].toArray(), QJsonArray{open});
        QCOMPARE(fit[u"open_fixes_omitted"_s].toInt(), 2);
        const QJsonValue output = fit[u"graph"_s][0][u"output"_s];
        QVERIFY(output[u"stdout_truncated"_s].toBool());
        QVERIFY(output[u"stdout"_s].toString().endsWith(u"end"_s));
        QCOMPARE(output[u"stdout"_s].toString().size() + output[u"stdout_chars_omitted"_s].toInt(), 10003);
    }

    void theLongestGiveMost()
    {
        const QJsonObject artifact{
            {u"dependencies"_s,
             QJsonArray{texts(u"content"_s, 9000), texts(u"content"_s, 2000), texts(u"content"_s, 6000)}}};
        const QJsonArray fit = fitted(artifact, 20000, {{1, 1, 1}, {}, {}})[u"dependencies"_s].toArray();
        QCOMPARE(fit[1], artifact[u"dependencies"_s][1]);
        QCOMPARE(fit[0][u"content"_s], fit[2][u"content"_s]);
        QVERIFY(json({{u"dependencies"_s, fit}}).size() > 19000);
    }

    void theLongWayRoundIsFarther()
    {
        QList<Node> nodes(4);
        const QList<std::pair<QString, QStringList>> links{
            {u"a"_s, {}}, {u"b"_s, {u"a"_s}}, {u"c"_s, {u"b"_s}}, {u"d"_s, {u"a"_s, u"c"_s}}};
        for (int i = 0; i < nodes.size(); ++i) {
            nodes[i].id = links[i].first;
            nodes[i].dependencies = links[i].second;
        }
        QCOMPARE(dependencyDistances(nodes, u"d"_s), (QList<int>{3, 1}));
        QCOMPARE(dependencyDistances(nodes, u"x"_s), QList<int>());
    }

    void anExcerptShowsWhatIsNamedOrChanged()
    {
        const QString text = numbered(3000);
        const QString changed = QString(text).replace(u"name900 "_s, u"other "_s);
        const QString shorter = QString(text).remove(u"const name900 = 900\n"_s);
        const QString minified = QString(text).replace(u'\n', u' ');
        struct Row {
            QString text;
            LineWeights weights;
            QString shown;
        };
        const QList<Row> rows{
            {text, namedLines(text, {u"Исправь const name2500"_s}), u"name2500 "_s},
            {text, namedLines(text, {u"b.js:7, строка 1700"_s}), u"name1700 "_s},
            {minified, namedLines(minified, {u"name2500"_s}), u"name2500 "_s},
            {changed, changedLines(changed, text), u"other "_s},
            {shorter, changedLines(shorter, text), u"name901 "_s},
            {text, namedLines(text, {u"Исправь const"_s}), u"name60 "_s},
            {text, changedLines(text, {}), u"name60 "_s},
        };
        for (const auto &[whole, weights, shown] : rows) {
            const Excerpt excerpt = excerptOf(whole, weights, 3000);
            QVERIFY2(excerpt.text.contains(shown), qPrintable(shown));
            QVERIFY(excerpt.text.startsWith(u"const name1 "_s));
            QVERIFY(escapedLength(excerpt.text) <= 3000);
            // But for the marks, every character is the file's.
            qsizetype kept = 0;
            const QStringList passages = excerpt.text.split(QRegularExpression(u"\n?\\[… .* …\\]\n"_s));
            for (const QString &passage : passages) {
                QVERIFY(whole.contains(passage));
                kept += passage.size();
            }
            QVERIFY(qAbs(kept + excerpt.omitted - whole.size()) <= passages.size());
        }
        QVERIFY(excerptOf(text, changedLines(text, {}), 30000).text.size() > 27000);
    }

    void toolsGiveWayEvenly()
    {
        QJsonArray tools;
        for (int i = 0; i < 100; ++i)
            tools.append(QJsonObject{{u"name"_s, QString::number(i)},
                                     {u"description"_s, QString(900, u'x')},
                                     {u"inputSchema"_s, QJsonObject{{u"a"_s, QString(i < 50 ? 10 : 900, u'y')}}}});
        QCOMPARE(fittedTools(tools, 300000), tools);
        const QJsonArray less = fittedTools(tools, 40000);
        QCOMPARE(less.size(), 100);
        QVERIFY(json({{u"t"_s, less}}).size() <= 40000);
        QVERIFY(less[49]["inputSchema"_L1].isObject() && less[50]["inputSchema_omitted"_L1].toBool());
        QVERIFY(fittedTools(tools, 1000).size() < 10);
    }

    void theOutlineListsHeadingsAndSymbols()
    {
        const QString text = u"# Глава\nтекст\nexport class Cell {\n  x = 1;\n  async function run() {}\n<h2>Да</h2>\n"
                             ".box {\nconst f = (a) => a;\n"_s;
        QCOMPARE(excerptOf(text, {}, 10).outline,
                 u"1: # Глава\n3: export class Cell {\n5: async function run() {}\n6: <h2>Да</h2>\n7: .box {\n"
                 "8: const f = (a) => a;\n"_s);
        QVERIFY(excerptOf(u"# Глава\n"_s.repeated(5000), {}, 10).outline.size() < 6000);
    }

    void editsAreCarriedOutOrRefused()
    {
        const QList<std::array<QString, 2>> rows{
            {u"[{'old':'two','new':'2'},{'old':'one','new':''}]"_s, u" 2 three three"_s},
            {u"[{'old':'one ','new':'a'},{'old':'two','new':'b'}]"_s, u"ab three three"_s},
            {u"[{'old':'four','new':''}]"_s, u"Правка 1 файла a.js не подходит, такого текста в нём нет: «four»"_s},
            {u"[{'old':'','new':'x'}]"_s, u"Правка 1 файла a.js не подходит, такого текста в нём нет: «»"_s},
            {u"[{'old':'one','new':''},{'old':'three','new':''}]"_s,
             u"Правка 2 файла a.js неоднозначна, этот текст встречается в нём несколько раз: «three»"_s},
            {u"[{'old':'ne tw','new':''},{'old':'two','new':''}]"_s,
             u"Правки файла a.js пересекаются: «two three three»"_s},
        };
        for (const auto &[edits, result] : rows) {
            const Edited done = edited(u"a.js"_s, u"one two three three"_s, array(edits));
            QCOMPARE(done.fault.isEmpty() ? done.text : done.fault, result);
        }
    }
};

QTEST_GUILESS_MAIN(RequestRoomTest)
#include "tst_request_room.moc"
