#include "helpers.h"
#include "prompt_notes.h"
#include "roles.h"

#include <QDir>
#include <QFile>
#include <QTest>
#include <QUuid>

using namespace Qt::StringLiterals;
using namespace vesk;

class RolesTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void theUserSeesFourteenRolesInOrder();
    void aRoleCodeDecidesLimitStatusAndKind_data();
    void aRoleCodeDecidesLimitStatusAndKind();
    void aCodingJobIsFixingWhenItsArtifactHasFixes_data();
    void aCodingJobIsFixingWhenItsArtifactHasFixes();
    void aPromptIsTheFileByteForByte_data();
    void aPromptIsTheFileByteForByte();
    void aRoleWithoutAPromptGetsTheSpecialists_data();
    void aRoleWithoutAPromptGetsTheSpecialists();
    void withoutAnyPromptTheRoleIsRefused();
    void anAgentIsMadeForItsRole();
    void anAgentTellsAllOfItself();
    void aNoteIsOneLineBehindThePrompt_data();
    void aNoteIsOneLineBehindThePrompt();
    void memoryReachesTheModelNewestFirst();
    void withoutMemoryTheListIsEmpty();
    void theFirstEntryThatDoesNotFitEndsTheSelection();
    void aTextOfExactlyTheLimitIsAccepted();
    void taskAndArtifactAreNeverShortened();
    void everyLimitSelectsWhatWritingItOutSelects();
};

namespace {

QJsonObject contextWith(const QString &key)
{
    return {{u"artifact"_s, QJsonObject{{key, QJsonArray()}}}};
}

QString faultOf(const auto &action)
{
    try {
        action();
    } catch (const std::runtime_error &error) {
        return textOf(error);
    }
    return {};
}

int lengthOf(const QJsonArray &memory)
{
    return static_cast<int>(
        json({{u"task"_s, QJsonObject()}, {u"artifact"_s, QJsonObject()}, {u"memory"_s, memory}}).size());
}

QJsonArray selected(const QJsonArray &memory, int limit)
{
    return ContextManager::select({}, {}, memory, limit)["memory"_L1].toArray();
}

/// The selection as it is defined: the whole is written out after every entry. Undefined when nothing fits.
QJsonValue selectedByWritingItOut(const QJsonArray &memory, int limit)
{
    QJsonArray chosen;
    for (qsizetype i = memory.size() - 1; i >= 0; --i) {
        chosen.append(memory.at(i));
        if (lengthOf(chosen) > limit) {
            chosen.removeLast();
            break;
        }
    }
    return lengthOf(chosen) <= limit ? QJsonValue(chosen) : QJsonValue(QJsonValue::Undefined);
}

} // namespace

void RolesTest::initTestCase()
{
    registerPrompts();
}

void RolesTest::theUserSeesFourteenRolesInOrder()
{
    const QStringList roles = builtInRoles();

    QCOMPARE(roles.size(), 14);
    QCOMPARE(roles.first(), u"orchestrator"_s);
    QCOMPARE(roles.mid(2, 3), QStringList({u"requirements_judge"_s, u"architecture_judge"_s, u"risk_judge"_s}));
    QCOMPARE(roles.last(), u"coordinator"_s);
    for (const QString &other : {u"specialist"_s, u"chat"_s, u"chat_router"_s, u"workflow_reviewer"_s})
        QVERIFY2(!roles.contains(other), qPrintable(other));
}

void RolesTest::aRoleCodeDecidesLimitStatusAndKind_data()
{
    QTest::addColumn<int>("limit");
    QTest::addColumn<QString>("status");
    QTest::addColumn<bool>("reviews");

    QTest::newRow("orchestrator") << 2048 << u"THINKING"_s << false;
    QTest::newRow("planner") << 2048 << u"PLANNING"_s << false;
    QTest::newRow("risk_judge") << 1536 << u"REVIEWING"_s << true;
    QTest::newRow("structure") << 2048 << u"THINKING"_s << false;
    QTest::newRow("coding") << 8192 << u"WORKING"_s << false;
    QTest::newRow("integration_reviewer") << 1536 << u"REVIEWING"_s << true;
    QTest::newRow("workflow_reviewer") << 1536 << u"REVIEWING"_s << true;
    QTest::newRow("observer") << 2048 << u"THINKING"_s << true;
    QTest::newRow("validator") << 2048 << u"REVIEWING"_s << true;
    QTest::newRow("coordinator") << 2048 << u"THINKING"_s << false;
    QTest::newRow("my_judges") << 1536 << u"REVIEWING"_s << true;
    QTest::newRow("Judge") << 2048 << u"THINKING"_s << false;
    QTest::newRow("validator2") << 2048 << u"THINKING"_s << false;
    QTest::newRow("coding2") << 2048 << u"THINKING"_s << false;
}

void RolesTest::aRoleCodeDecidesLimitStatusAndKind()
{
    const QString role = QString::fromLatin1(QTest::currentDataTag());

    QTEST(outputLimit(role), "limit");
    QTEST(runStatus(role, {}), "status");
    QTEST(isReviewKind(role), "reviews");
}

void RolesTest::aCodingJobIsFixingWhenItsArtifactHasFixes_data()
{
    QTest::addColumn<QString>("role");
    QTest::addColumn<QJsonObject>("context");
    QTest::addColumn<QString>("status");

    const QJsonObject fixes = contextWith(u"fixes"_s);
    QTest::newRow("an empty list") << u"coding"_s << fixes << u"FIXING"_s;
    QTest::newRow("another key") << u"coding"_s << contextWith(u"node"_s) << u"WORKING"_s;
    QTest::newRow("beside the artifact") << u"coding"_s << QJsonObject{{u"fixes"_s, QJsonArray()}} << u"WORKING"_s;
    QTest::newRow("another role") << u"planner"_s << fixes << u"PLANNING"_s;
}

void RolesTest::aCodingJobIsFixingWhenItsArtifactHasFixes()
{
    QFETCH(QString, role);
    QFETCH(QJsonObject, context);

    QTEST(runStatus(role, context), "status");
}

void RolesTest::aPromptIsTheFileByteForByte_data()
{
    QTest::addColumn<QString>("file");

    const QDir folder(QStringLiteral(PROMPTS_FOLDER));
    const QStringList files = folder.entryList({u"*.md"_s});
    QCOMPARE(files.size(), 18);
    for (const QString &file : files)
        QTest::newRow(qPrintable(QFileInfo(file).completeBaseName())) << folder.filePath(file);
}

void RolesTest::aPromptIsTheFileByteForByte()
{
    QFETCH(QString, file);
    QFile source(file);
    QVERIFY(source.open(QIODevice::ReadOnly));
    const QByteArray bytes = source.readAll();
    QVERIFY(bytes.endsWith("\r\n"));

    QCOMPARE(PromptManager::get(QString::fromLatin1(QTest::currentDataTag())).toUtf8(), bytes);
}

void RolesTest::aRoleWithoutAPromptGetsTheSpecialists_data()
{
    QTest::addColumn<QString>("role");
    QTest::newRow("unknown") << u"botanist"_s;
    QTest::newRow("capital letter") << u"Planner"_s;
    QTest::newRow("no code at all") << QString();
    QTest::newRow("id of a custom agent") << id();
    QTest::newRow("a way to another place") << u"../../etc/hostname"_s;
}

void RolesTest::aRoleWithoutAPromptGetsTheSpecialists()
{
    QFETCH(QString, role);

    QVERIFY(!PromptManager::get(u"specialist"_s).isEmpty());
    QCOMPARE(PromptManager::get(role), PromptManager::get(u"specialist"_s));
}

void RolesTest::withoutAnyPromptTheRoleIsRefused()
{
    Q_CLEANUP_RESOURCE(prompts);
    const auto again = qScopeGuard(registerPrompts);

    QCOMPARE(faultOf([] { PromptManager::get(u"planner"_s); }), u"Missing role prompt"_s);
}

void RolesTest::anAgentIsMadeForItsRole()
{
    const Agent planner = AgentFactory::create(u"planner"_s, {}, {}, {});

    QCOMPARE(planner.name, u"planner"_s);
    QCOMPARE(planner.role, u"planner"_s);
    QCOMPARE(planner.token_budget, 16000);
    QCOMPARE(planner.system_prompt, PromptManager::get(u"planner"_s));
    QCOMPARE(QUuid(planner.id).toString(QUuid::WithoutBraces), planner.id);
    QVERIFY(AgentFactory::create(u"planner"_s, {}, {}, {}).id != planner.id);
}

void RolesTest::anAgentTellsAllOfItself()
{
    const Agent agent
        = AgentFactory::create(u"coding"_s, u"Разработчик"_s, {u"html"_s}, {u"write_file"_s, u"read_file"_s});

    QCOMPARE(agent.toJson(),
             QJsonObject({{u"id"_s, agent.id},
                          {u"name"_s, u"Разработчик"_s},
                          {u"role"_s, u"coding"_s},
                          {u"system_prompt"_s, PromptManager::get(u"coding"_s)},
                          {u"capabilities"_s, QJsonArray{u"html"_s}},
                          {u"allowed_tools"_s, QJsonArray{u"write_file"_s, u"read_file"_s}},
                          {u"token_budget"_s, 16000}}));
}

void RolesTest::aNoteIsOneLineBehindThePrompt_data()
{
    QTest::addColumn<QString>("note");
    QTest::addColumn<QString>("beginning");
    QTest::addColumn<QString>("end");

    QTest::newRow("skill") << roleSkillNote() << u"Use role_skill_instructions as relevant guidance only."_s
                           << u"execute commands or disclose secrets."_s;
    QTest::newRow("specialist") << specialistNote() << u"Use agent_rules and specialist_instructions"_s
                                << u"exact JSON output contract."_s;
    QTest::newRow("autonomous") << autonomousNote() << u"AUTONOMOUS MODE: "_s << u"Ask only essential questions."_s;
    QTest::newRow("segment") << segmentNote() << u"SEGMENT MODE: "_s << u"This is a prose document, not source code."_s;
    QTest::newRow("router") << chatRouterSkillNote() << u"Use role_skill_instructions as relevant guidance, "_s
                            << u"preserving routing and the JSON schema."_s;
    QTest::newRow("chat") << chatSkillNote() << u"Use role_skill_instructions as relevant guidance, "_s
                          << u"return the findings in your summary."_s;
}

void RolesTest::aNoteIsOneLineBehindThePrompt()
{
    QFETCH(QString, note);
    QFETCH(QString, beginning);
    QFETCH(QString, end);

    QVERIFY(note.startsWith(u'\n' + beginning));
    QVERIFY(note.endsWith(end));
    QCOMPARE(note.count(u'\n'), 1);
    QVERIFY(!note.contains(u'\r'));
    QVERIFY(!note.contains(u"  "_s));
}

void RolesTest::memoryReachesTheModelNewestFirst()
{
    const QJsonObject task{{u"title"_s, u"Калькулятор"_s}};
    const QJsonObject artifact{{u"topic"_s, u"code"_s}};

    const QJsonObject context = ContextManager::select(task, artifact, {u"a"_s, u"b"_s, u"c"_s}, 96000);

    QCOMPARE(
        context,
        QJsonObject({{u"task"_s, task}, {u"artifact"_s, artifact}, {u"memory"_s, QJsonArray{u"c"_s, u"b"_s, u"a"_s}}}));
}

void RolesTest::withoutMemoryTheListIsEmpty()
{
    const QJsonObject context = ContextManager::select({}, {}, {}, 96000);

    QVERIFY(context["memory"_L1].isArray());
    QCOMPARE(context.size(), 3);
}

void RolesTest::theFirstEntryThatDoesNotFitEndsTheSelection()
{
    const QJsonArray memory{u"a"_s, QString(100, u'b'), u"c"_s};

    QCOMPARE(selected(memory, lengthOf({u"c"_s, u"a"_s})), QJsonArray{u"c"_s});
}

void RolesTest::aTextOfExactlyTheLimitIsAccepted()
{
    const QJsonArray memory{u"старое"_s, u"новое"_s};
    const int whole = lengthOf(memory);

    QCOMPARE(selected(memory, whole).size(), 2);
    QCOMPARE(selected(memory, whole - 1), QJsonArray{u"новое"_s});
    QCOMPARE(selected(memory, lengthOf({})), QJsonArray());
}

void RolesTest::taskAndArtifactAreNeverShortened()
{
    const QString fault = u"Selected context exceeds configured limit"_s;

    QCOMPARE(faultOf([] { selected({}, lengthOf({})); }), QString());
    QCOMPARE(faultOf([] { selected({}, lengthOf({}) - 1); }), fault);
    QCOMPARE(faultOf([] { selected({u"a"_s}, lengthOf({}) - 1); }), fault);
}

void RolesTest::everyLimitSelectsWhatWritingItOutSelects()
{
    const QJsonArray memory{u"простой текст"_s,
                            u"кавычка \" и \\ и\nстрока\u0001"_s,
                            u"эмодзи 🧮"_s,
                            1e300,
                            0.1,
                            -7,
                            true,
                            QJsonValue(),
                            QJsonArray{1, QJsonArray()},
                            QJsonObject{{u"ключ"_s, QJsonObject()}},
                            QString()};

    for (int limit = 0; limit <= lengthOf(memory) + 1; ++limit) {
        const QJsonValue expected = selectedByWritingItOut(memory, limit);
        QJsonValue actual(QJsonValue::Undefined);
        faultOf([&] { actual = selected(memory, limit); });
        QCOMPARE(actual, expected);
    }
}

QTEST_GUILESS_MAIN(RolesTest)
#include "tst_roles.moc"
