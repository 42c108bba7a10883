#include "permissions.h"

#include <QTest>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

Grant grantOf(const QString &scope)
{
    return {u"run_command"_s, u"task"_s, u"project"_s, u"print"_s, scope, PermissionLevel::Execute};
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
    void aGrantAppliesWithinItsScope_data()
    {
        QTest::addColumn<QString>("scope");
        QTest::addColumn<bool>("otherPrint");
        QTest::addColumn<bool>("otherTask");
        QTest::addColumn<bool>("otherProject");
        QTest::newRow("action") << u"THIS_ACTION"_s << false << false << false;
        QTest::newRow("task") << u"CURRENT_TASK"_s << true << false << false;
        QTest::newRow("project") << u"CURRENT_PROJECT"_s << true << true << false;
        QTest::newRow("session") << u"SESSION"_s << true << true << true;
    }

    void aGrantAppliesWithinItsScope()
    {
        QFETCH(QString, scope);
        QFETCH(bool, otherPrint);
        QFETCH(bool, otherTask);
        QFETCH(bool, otherProject);
        PermissionManager manager;
        QVERIFY(!asks(manager));
        manager.grants = {grantOf(scope)};

        QVERIFY(asks(manager));
        QCOMPARE(asks(manager, false, u"task"_s, u"project"_s, u"other"_s), otherPrint);
        QCOMPARE(asks(manager, false, u"other"_s), otherTask);
        QCOMPARE(asks(manager, false, u"task"_s, u"other"_s), otherProject);

        manager.grants = {grantOf(u"this_action"_s)};
        QVERIFY(!asks(manager));
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
        QVERIFY(asks(manager, false));
        QVERIFY(asks(manager, true));
        QVERIFY(asks(manager, true));
        QVERIFY(!asks(manager, true));
    }

    void theEndOfATaskTakesItsGrants()
    {
        PermissionManager manager;
        Grant other = grantOf(u"CURRENT_TASK"_s);
        other.task = u"other"_s;
        manager.grants = {grantOf(u"SESSION"_s), grantOf(u"THIS_ACTION"_s), other, grantOf(u"CURRENT_TASK"_s),
                          grantOf(u"CURRENT_PROJECT"_s)};

        manager.expireTask(u"task"_s);

        QStringList left;
        for (const Grant &grant : std::as_const(manager.grants))
            left.append(grant.task + u'/' + grant.scope);
        QCOMPARE(left, (QStringList{u"task/SESSION"_s, u"other/CURRENT_TASK"_s, u"task/CURRENT_PROJECT"_s}));
    }
};

QTEST_APPLESS_MAIN(PermissionsTest)
#include "tst_permissions.moc"
