#include "permissions.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

Grant grantOf(const QString &scope, const QString &task = u"task"_s)
{
    return {u"run_command"_s, task, u"project"_s, u"print"_s, scope, PermissionLevel::Execute};
}

bool asks(PermissionManager &manager, bool consume = false, const QString &task = u"task"_s,
          const QString &project = u"project"_s, const QString &print = u"print"_s)
{
    return manager.allowed(u"run_command"_s, PermissionLevel::Execute, task, project, print, consume);
}

} // namespace

class PermissionsTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void aGrantAppliesWithinItsScope()
    {
        struct Row {
            QString scope;
            bool same = false;
            bool otherPrint = false;
            bool otherTask = false;
            bool otherProject = false;
        };
        for (const Row &row : {Row{u"THIS_ACTION"_s, true}, Row{u"CURRENT_TASK"_s, true, true},
                               Row{u"CURRENT_PROJECT"_s, true, true, true}, Row{u"SESSION"_s, true, true, true, true},
                               Row{u"this_action"_s}}) {
            PermissionManager manager;
            manager.grants = {grantOf(row.scope)};
            QCOMPARE(asks(manager), row.same);
            QCOMPARE(asks(manager, false, u"task"_s, u"project"_s, u"other"_s), row.otherPrint);
            QCOMPARE(asks(manager, false, u"other"_s), row.otherTask);
            QCOMPARE(asks(manager, false, u"task"_s, u"other"_s), row.otherProject);
        }
    }

    void aLevelCoversTheLowerOnesAndOnlyItsTool()
    {
        PermissionManager manager;
        manager.grants = {{u"write_file"_s, u"t"_s, u"p"_s, {}, u"CURRENT_TASK"_s, PermissionLevel::Write}};
        QVERIFY(manager.allowed(u"write_file"_s, PermissionLevel::Read, u"t"_s, u"p"_s, {}, true));
        QVERIFY(manager.allowed(u"write_file"_s, PermissionLevel::Write, u"t"_s, u"p"_s, {}, true));
        QVERIFY(!manager.allowed(u"write_file"_s, PermissionLevel::Execute, u"t"_s, u"p"_s, {}, true));
        QVERIFY(!manager.allowed(u"run_command"_s, PermissionLevel::Read, u"t"_s, u"p"_s, {}, true));
    }

    void aGrantForOneActionIsUsedUp()
    {
        PermissionManager manager;
        manager.grants = {grantOf(u"THIS_ACTION"_s), grantOf(u"THIS_ACTION"_s)};
        QVERIFY(asks(manager, false) && asks(manager, true) && asks(manager, true));
        QVERIFY(!asks(manager, true));
    }

    void theEndOfATaskTakesItsGrants()
    {
        const QList<Grant> stay{grantOf(u"SESSION"_s), grantOf(u"CURRENT_TASK"_s, u"other"_s),
                                grantOf(u"CURRENT_PROJECT"_s)};
        PermissionManager manager;
        manager.grants = stay + QList{grantOf(u"THIS_ACTION"_s), grantOf(u"CURRENT_TASK"_s)};
        manager.expireTask(u"task"_s);
        QCOMPARE(manager.grants.size(), 3);
        for (qsizetype i = 0; i < 3; ++i)
            QCOMPARE(manager.grants[i].scope + manager.grants[i].task, stay[i].scope + stay[i].task);
    }
};

QTEST_APPLESS_MAIN(PermissionsTest)
#include "tst_permissions.moc"
