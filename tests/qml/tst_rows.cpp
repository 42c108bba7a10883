// The model between the application's lists and the views: after every change its rows are the list's, and a view is
// told no more than has changed.

#include "rows.h"

#include <QAbstractItemModelTester>
#include <QRandomGenerator>
#include <QSignalSpy>
#include <QTest>

#include <algorithm>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

QVariantMap row(int id, const QString &kind = u"message"_s, int version = 0)
{
    return {{u"id"_s, QString::number(id)}, {u"kind"_s, kind}, {u"version"_s, version}};
}

QVariantList rowsOf(const Rows &rows)
{
    QVariantList list;
    for (int i = 0; i < rows.rowCount(); ++i)
        list.append(rows.data(rows.index(i), Qt::UserRole));
    return list;
}

} // namespace

/// What the application is for the model: an object with a list that announces its changes.
class Source : public QObject {
    Q_OBJECT
    Q_PROPERTY(QVariantList items MEMBER items NOTIFY changed)
    Q_PROPERTY(QVariantList others MEMBER others NOTIFY othersChanged)
public:
    QVariantList items;
    QVariantList others;
    void become(const QVariantList &list)
    {
        items = list;
        Q_EMIT changed();
    }
Q_SIGNALS:
    void changed();
    void othersChanged();
};

/// Keeps what a view that believes the signals would show, and notes them.
class View : public QObject {
    Q_OBJECT
public:
    explicit View(Rows &model)
        : rows(model)
        , tester(&model, QAbstractItemModelTester::FailureReportingMode::QtTest)
    {
        connect(&model, &Rows::rowsInserted, this, [this](const QModelIndex &, int first, int last) {
            for (int i = first; i <= last; ++i)
                shown.insert(i, rows.at(i));
            note(u'+', first, last);
        });
        connect(&model, &Rows::rowsRemoved, this, [this](const QModelIndex &, int first, int last) {
            shown.remove(first, last - first + 1);
            note(u'-', first, last);
        });
        connect(&model, &Rows::dataChanged, this, [this](const QModelIndex &first, const QModelIndex &last) {
            for (int i = first.row(); i <= last.row(); ++i)
                shown[i] = rows.at(i);
            note(u'~', first.row(), last.row());
        });
        shown = rowsOf(model);
    }
    QVariantList shown;
    QStringList told;

private:
    void note(QChar what, int first, int last) { told.append(u"%1%2..%3"_s.arg(what).arg(first).arg(last)); }

    Rows &rows;
    QAbstractItemModelTester tester;
};

class RowsTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void aChangeIsToldInTheFewestSignals_data();
    void aChangeIsToldInTheFewestSignals();
    void afterAnyChangesTheRowsAreTheList_data();
    void afterAnyChangesTheRowsAreTheList();
    void onlyTheRowsOfSomeKindsAreShown();
    void anotherListIsFollowedInstead();
};

void RowsTest::aChangeIsToldInTheFewestSignals_data()
{
    QTest::addColumn<bool>("newestFirst");
    QTest::addColumn<QVariantList>("before");
    QTest::addColumn<QVariantList>("after");
    QTest::addColumn<QStringList>("told");
    const QVariantList three{row(1), row(2), row(3)};
    const QVariantList four{row(1), row(2), row(3), row(4)};
    const QVariantList replaced{row(1), row(7), row(8), row(3)};
    const QVariantList grown{row(1), row(2, u"message"_s, 1), row(3), row(4)};
    const QVariantList pathless{QVariantMap{{u"path"_s, u"a"_s}, {u"revision"_s, 1}}};
    const QVariantList revised{QVariantMap{{u"path"_s, u"a"_s}, {u"revision"_s, 2}}};
    QTest::newRow("appended") << false << three << four << QStringList{u"+3..3"_s};
    QTest::newRow("appended, newest first") << true << three << four << QStringList{u"+0..0"_s};
    QTest::newRow("first one") << false << QVariantList() << three << QStringList{u"+0..2"_s};
    QTest::newRow("removed") << false << four << QVariantList{row(1), row(4)} << QStringList{u"-1..2"_s};
    QTest::newRow("the oldest goes") << false << three << QVariantList{row(2), row(3)} << QStringList{u"-0..0"_s};
    QTest::newRow("replaced") << false << three << replaced << QStringList{u"-1..1"_s, u"+1..2"_s};
    QTest::newRow("changed and appended") << false << three << grown << QStringList{u"+3..3"_s, u"~1..1"_s};
    QTest::newRow("a file by its path") << false << pathless << revised << QStringList{u"~0..0"_s};
}

void RowsTest::aChangeIsToldInTheFewestSignals()
{
    QFETCH(bool, newestFirst);
    QFETCH(QVariantList, before);
    QFETCH(QVariantList, after);
    QFETCH(QStringList, told);
    Source source;
    source.items = before;
    Rows rows;
    rows.setNewestFirst(newestFirst);
    rows.setList(u"items"_s);
    rows.setSource(&source);
    const View view(rows);
    const QSignalSpy counts(&rows, &Rows::countChanged);
    source.become(after);
    QCOMPARE(view.told, told);
    QCOMPARE(counts.count(), before.size() == after.size() ? 0 : 1);
    if (newestFirst)
        std::ranges::reverse(after);
    QCOMPARE(rowsOf(rows), after);
    QCOMPARE(view.shown, after);
}

void RowsTest::afterAnyChangesTheRowsAreTheList_data()
{
    QTest::addColumn<bool>("newestFirst");
    QTest::addColumn<QStringList>("without");
    QTest::newRow("all") << false << QStringList();
    QTest::newRow("newest first") << true << QStringList();
    QTest::newRow("filtered, newest first") << true << QStringList{u"progress"_s};
}

void RowsTest::afterAnyChangesTheRowsAreTheList()
{
    QFETCH(bool, newestFirst);
    QFETCH(QStringList, without);
    QRandomGenerator random(20240917);
    const auto below = [&](qsizetype limit) { return random.bounded(qint64(limit)); };
    Source source;
    Rows rows;
    rows.setNewestFirst(newestFirst);
    rows.setWithout(without);
    rows.setList(u"items"_s);
    rows.setSource(&source);
    const View view(rows);
    int next = 0;
    for (int step = 0; step < 2000; ++step) {
        QVariantList list = source.items;
        for (qint64 changes = below(3); changes >= 0; --changes) {
            const qint64 what = below(6);
            if (list.isEmpty() || what < 2)
                list.insert(what == 0 ? list.size() : below(list.size() + 1),
                            row(next++, below(3) == 0 ? u"progress"_s : u"message"_s));
            else if (what == 2)
                list.remove(below(list.size()));
            else if (what == 3)
                list[below(list.size())] = row(int(below(next)), u"message"_s, step);
            else if (what == 4)
                std::ranges::rotate(list, list.begin() + below(list.size()));
            else if (list.size() > 20)
                list.remove(0, below(list.size()));
        }
        source.become(list);
        list.removeIf([&](const QVariant &shown) { return without.contains(shown.toMap()[u"kind"_s].toString()); });
        if (newestFirst)
            std::ranges::reverse(list);
        QCOMPARE(rowsOf(rows), list);
        QCOMPARE(view.shown, list);
        QCOMPARE(rows.count(), list.size());
    }
}

void RowsTest::onlyTheRowsOfSomeKindsAreShown()
{
    Source source;
    source.items = {row(1), row(2, u"progress"_s), row(3, u"file"_s), row(4)};
    Rows rows;
    rows.setSource(&source);
    rows.setList(u"items"_s);
    const View view(rows);
    rows.setOnly({u"progress"_s});
    QCOMPARE(rowsOf(rows), QVariantList{row(2, u"progress"_s)});
    QCOMPARE(view.shown, rowsOf(rows));
    const qsizetype told = view.told.size();
    source.become(source.items + QVariantList{row(5), row(6, u"file"_s)});
    QCOMPARE(view.told.size(), told);
}

void RowsTest::anotherListIsFollowedInstead()
{
    Source source;
    source.items = {row(1)};
    source.others = {row(7), row(8)};
    Rows rows;
    rows.setSource(&source);
    rows.setList(u"items"_s);
    rows.setList(u"others"_s);
    QCOMPARE(rows.count(), 2);
    source.become({row(1), row(2), row(3)});
    QCOMPARE(rows.count(), 2);
    rows.setList(u"missing"_s);
    QCOMPARE(rows.count(), 0);
    {
        Source brief;
        brief.items = {row(5)};
        rows.setList(u"items"_s);
        rows.setSource(&brief);
        QCOMPARE(rows.count(), 1);
        rows.setSource(nullptr);
    }
    QCOMPARE(rows.count(), 0);
}

QTEST_MAIN(RowsTest)
#include "tst_rows.moc"
