// The user's own agents through the backend: edits and their refusals, random ones too, skills from a real server, and
// runs that they take part in.

#include "agent_network.h"
#include "agent_team.h"
#include "backend_desk.h"
#include "credential_store.h"
#include "error_of.h"
#include "json_text.h"
#include "model_server.h"
#include "preferences.h"
#include "process_containment.h"
#include "store.h"
#include "workflow.h"

#include <QHash>
#include <QRandomGenerator>
#include <QSslConfiguration>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

const auto lost = u"Не удалось загрузить skill. Нужен публичный Markdown до 64 КБ; прежний skill сохранён."_s;

class AgentDesk : public Desk {
public:
    using Desk::Desk;
    QJsonObject document() const { return QJsonObject::fromVariantMap(read("preferences").toMap()); }
    QJsonArray agents() const { return document()[u"custom_agents"_s].toArray(); }
    QString add(const QString &name) { return call("addAgent", {name, u""_s, u""_s}).toString(); }
    /// The refusal of an operation; that it changed something though it refused, or nothing though it didn't.
    QString outcome(const QByteArray &operation, const QVariantList &arguments)
    {
        const QJsonObject before = document();
        call(operation, arguments);
        if (message().isEmpty() == (before == document()))
            return u"changed: "_s + message();
        return message() + thrown;
    }
    QVariantMap profile(const QString &id) const
    {
        const QVariantList all = read("agentProfiles").toList();
        for (const QVariant &each : all) {
            if (each.toMap().value(u"id"_s) == id)
                return each.toMap();
        }
        return {};
    }
    QString undoText() const { return read("networkUndo").toString(); }
    QVariantMap skill(const QString &id) { return call("agentSkill", {id}).toMap(); }
};

/// A server of skills whose certificate was made on the spot.
class SkillServer : public WireServer {
    Q_OBJECT
public:
    explicit SkillServer(const QSslConfiguration &tls)
        : WireServer(
              [this](const WireRequest &) { return replies.size() > 1 ? replies.takeFirst() : replies.value(0); }, tls)
    {
        qputenv("VESK_SKILL_PAGES", "pages.test");
        qputenv("VESK_SKILL_FILES", host().toUtf8());
    }
    QString host() const { return url().section(u'/', 2, 2); }
    QString link() const { return u"https://"_s + host() + u"/me/repo/main/SKILL.md"_s; }
    QList<WireReply> replies;
};

WireReply file(const QByteArray &text)
{
    return WireReply::document(200, text);
}

/// What a server of a model was asked, as "role: agent's rules".
class Model : public ModelServer {
    Q_OBJECT
public:
    Model()
        : ModelServer([this](const LLMRequest &request) {
            asked.append(request);
            roles.append(request.role);
            const QStringList waiting = answers.value(request.role);
            if (waiting.isEmpty())
                return request.role == "specialist"_L1 || request.role.isEmpty() ? u"{\"summary\":\"Итог\"}"_s
                                                                                 : unasking(request);
            answers[request.role] = waiting.size() > 1 ? waiting.sliced(1) : waiting;
            return waiting.first();
        })
    {
    }
    QHash<QString, QStringList> answers; ///< By role; the last one stays.
    QList<LLMRequest> asked;
    QStringList roles;
};

} // namespace

class AgentsTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { ProcessContainment::useGuard(QStringLiteral(VESK_GUARD_PROGRAM)); }

    void editsAndTheirRefusals()
    {
        AgentDesk desk;
        const QString a = desk.add(u" A "_s);
        const QString b = desk.add(u"B"_s);
        const QString c = desk.add(u"C"_s);
        const QString role = u"coding"_s;
        const QString longRules(8001, u'я');
        const QString apart = u"Выберите двух разных агентов"_s;
        const QList<std::tuple<QByteArray, QVariantList, QString>> steps{
            {"addAgent", {u" "_s, u""_s, u""_s}, u"Введите имя агента"_s},
            {"addAgent", {u"X"_s, u"nobody"_s, u""_s}, u"Неизвестная родительская роль"_s},
            {"addMediaAgent", {u"sound"_s}, u"Неизвестный тип анализа"_s},
            {"configureAgent", {a, longRules, 1, u"x"_s}, u"Правила: до 8000 символов"_s},
            {"configureAgent", {a, u""_s, 1, u"x"_s}, u"Неизвестный режим агента"_s},
            {"configureAgent", {role, u""_s, 1, u"review"_s}, u"Агент не найден"_s},
            {"configureAgent", {b, u"Правила"_s, 150, u"delegate"_s}, {}},
            {"setAgentTasks", {a, QStringList{u"photo"_s, u"x"_s}}, u"Неизвестная задача агента"_s},
            {"setAgentTasks", {role, QStringList{u"photo"_s}}, u"Выберите своего агента"_s},
            {"setAgentTasks", {a, QStringList{u"video"_s, u"photo"_s, u"photo"_s}}, {}},
            {"setAgentTasks", {b, QStringList{u"video"_s}}, {}},
            {"setAgentTasks", {c, QStringList{u"photo"_s}}, {}},
            {"setAgentTasks", {c, QStringList{u"code"_s}}, {}},
            {"connectAgents", {a, a}, apart},
            {"connectAgents", {a, u"x"_s}, apart},
            {"connectAgents", {role, u"planner"_s}, u"Агент не найден"_s},
            {"linkAgent", {a, u"nobody"_s}, u"Выберите этап"_s},
            {"linkAgent", {u"x"_s, role}, u"Агент не найден"_s},
            {"connectAgents", {a, b}, {}}, // a delegate comes into the chain, at the usual stage
            {"connectAgents", {a, b}, u"changed: "_s}, // or rather, not
            {"connectAgents", {b, a}, u"Связь создаёт цикл: агент не может ждать сам себя"_s},
            {"configureAgent", {a, u""_s, 1, u"delegate"_s}, u"Связи между агентами требуют режима цепочки"_s},
            {"connectAgents", {b, c}, {}},
            {"connectAgents", {u"planner"_s, c}, {}},
            {"setAgentEnabled", {c, false}, {}},
            {"setAgentEnabled", {u"observer"_s, false}, {}},
            {"setAgentEnabled", {u"observer"_s, true}, {}},
            {"setAgentEnabled", {u"observer"_s, false}, {}},
            {"saveNetwork", {u" "_s}, u"Введите название схемы"_s},
            {"loadNetwork", {u"x"_s}, u"Схема не найдена"_s},
            {"setAgentSkill", {u"x"_s, u""_s}, u"Агент не найден"_s},
        };
        for (const auto &[operation, arguments, refusal] : steps)
            QCOMPARE(operation + ": " + desk.outcome(operation, arguments).toUtf8(),
                     operation + ": " + refusal.toUtf8());
        const QString keys = u"name parent mode kind priority enabled after tasks media_analysis"_s;
        QCOMPARE(fields(desk.agents()[0], keys), u"A planner workflow specialist 50 true  ['video','photo'] both"_s);
        QCOMPARE(fields(desk.agents()[1], keys),
                 u"B planner workflow specialist 100 true ['%1'] ['video'] video"_s.arg(a));
        QCOMPARE(fields(desk.agents()[2], keys), u"C planner workflow specialist 50 false ['%1'] ['code'] "_s.arg(b));
        QCOMPARE(desk.profile(u"observer"_s)[u"enabled"_s], false);
        QCOMPARE(desk.profile(c).keys().join(u' '),
                 u"after api custom enabled id kind mode name parent priority rules tasks"_s);

        // The stage of the one that is led to is that of the chain.
        const QString d = desk.call("addAgent", {u"D"_s, role, u""_s}).toString();
        desk.call("connectAgents", {d, a});
        QCOMPARE(fields(desk.agents(), u"0.parent 0.after 3.parent"_s), u"planner ['%1'] planner"_s.arg(d));
        desk.call("removeAgent", {d});

        desk.call("removeAgent", {b});
        QCOMPARE(fields(desk.agents()[1], u"id after"_s), c + u" []"_s);
        desk.call("setAgentEnabled", {c, false}); // It is off: there is nothing to take back.
        QCOMPARE(desk.undoText(), u"Агент «B» удалён"_s);
        for (int count = 2; count < 19; ++count)
            desk.add(QString(59, u'n') + u"\U0001F3A8"_s);
        QCOMPARE(desk.agents()[18][u"name"_s].toString().size(), 59);
        desk.call("addWorkflowTemplate");
        QCOMPARE(desk.agents().size(), 24);
        QCOMPARE(fields(desk.agents()[23], u"kind priority"_s), u"review 50"_s);
        QCOMPARE(desk.outcome("addAgent", {u"X"_s, u""_s, u""_s}),
                 u"Можно добавить до 24 ролей, одновременно работают до 8"_s);
        QCOMPARE(desk.outcome("addMediaAgent", {u"photo"_s}), u"Можно добавить до 24 ролей"_s);
        desk.call("removeAgent", {c});
        desk.call("removeAgent", {desk.agents()[22][u"id"_s].toString()});
        desk.call("addMediaAgent", {u"video"_s});
        desk.call("removeAgent", {desk.agents()[22][u"id"_s].toString()});
        while (desk.agents().size() < 20)
            desk.add(u"Y"_s);
        QCOMPARE(desk.outcome("addWorkflowTemplate", {}), u"Для шаблона нужно 5 свободных мест"_s);

        for (int count = 0; count < 20; ++count)
            desk.call("saveNetwork", {QString::number(count)});
        QCOMPARE(desk.outcome("saveNetwork", {u"x"_s}), u"Можно сохранить до 20 схем"_s);
        desk.callWith("setPreference", {u"agent_positions"_s}, u"{coding: {x: 0.5, y: 0.25}}"_s);
        QCOMPARE(desk.outcome("saveNetwork", {u"7"_s}), QString());
        desk.callWith("setPreference", {u"agent_positions"_s}, u"{}"_s);
        QCOMPARE(desk.undoText(), u"Расположение сброшено"_s);
        desk.call("loadNetwork", {u"7"_s});
        QCOMPARE(fields(desk.document(), u"agent_positions.coding.y network_layouts.7.coding.x"_s), u"0.25 0.5"_s);
    }

    /// Any edit of any agent, 10,000 times: a refusal changes nothing, what is stored would run, and the last change
    /// can be taken back exactly once.
    void randomEditsLeaveANetworkThatRuns()
    {
        const quint32 seed = qEnvironmentVariableIsSet("VESK_SEED") ? qEnvironmentVariableIntValue("VESK_SEED")
                                                                    : QRandomGenerator::global()->generate();
        QRandomGenerator random(seed);
        const QTemporaryDir folder(sandbox::memoryTemplate());
        Store store(folder.filePath(u"x.sqlite"_s));
        Preferences preferences(store);
        AgentTeam team(store, preferences);
        const auto any = [&](const QStringList &values) { return values[random.bounded(values.size())]; };
        int refused = 0;
        QJsonObject before = preferences.document();
        for (int step = 0; step < 10000; ++step) {
            QStringList ids{u"coding"_s, u"planner"_s, u"x"_s, u""_s};
            const QJsonArray known = std::as_const(before)[u"custom_agents"_s].toArray();
            for (const QJsonValue &agent : known)
                ids.append(agent[u"id"_s].toString());
            const QString one = any(ids);
            const QString two = any(ids);
            const QList<std::function<void()>> edits{
                [&] { team.addAgent(any({u"A"_s, u""_s}), one, random.bounded(-9, 200), one); },
                [&] { team.addMediaAgent(any({u"photo"_s, u"video"_s, u"x"_s})); },
                [&] {
                    team.configureAgent(one, two, random.bounded(-9, 200),
                                        any({u"review"_s, u"delegate"_s, u"specialist"_s, u"x"_s}));
                },
                [&] { team.setAgentEnabled(one, random.bounded(2) == 0); },
                [&] { team.setAgentTasks(one, {any(agentTaskTypes()), any({u"photo"_s, u"video"_s, u"x"_s})}); },
                [&] { team.connectAgents(one, two); },
                [&] { team.connectAgents(two, one); },
                [&] { team.unlinkAgents(one, two); },
                [&] { team.linkAgent(one, two); },
                [&] { team.removeAgent(one); },
                [&] { team.addWorkflowTemplate(); },
                [&] { team.saveNetwork(one); },
                [&] { team.loadNetwork(any({one, u"coding"_s})); },
                [&] { team.setPositions({{one, step}}); },
            };
            const QByteArray where = "VESK_SEED=" + QByteArray::number(seed) + ", step " + QByteArray::number(step);
            const QString refusal = errorOf(edits[random.bounded(edits.size())]);
            QJsonObject after = preferences.document();
            const QJsonArray network = std::as_const(after)[u"custom_agents"_s].toArray();
            if (!refusal.isEmpty()) {
                ++refused;
                QVERIFY2(after == before, where);
            }
            try {
                validateAgentWorkflow(network);
            } catch (const std::exception &fault) {
                QFAIL(where + ": " + fault.what());
            }
            for (const QJsonValue &agent : network) {
                QVERIFY2(agent[u"priority"_s].toInt() == std::clamp(agent[u"priority"_s].toInt(), 0, 100), where);
                QVERIFY2((agent[u"mode"_s] == u"delegate"_s) == (agent[u"kind"_s] == u"delegate"_s), where);
                for (const QJsonValue &link : agent[u"after"_s].toArray())
                    QVERIFY2(agentIn(network, link.toString())[u"parent"_s] == agent[u"parent"_s], where);
            }
            if (refusal.isEmpty() && !(after == before) && random.bounded(3) == 0) {
                team.undoNetwork();
                after = preferences.document();
                QVERIFY2(after == before, where + ": " + jsonBytes(before) + " became " + jsonBytes(after));
                QVERIFY2(team.undoText().isEmpty(), where);
                QVERIFY2(errorOf([&] { team.undoNetwork(); }) == u"Нечего отменять"_s, where);
            }
            before = after;
        }
        QVERIFY(refused > 500);
    }

    void aLinkLeadsToAFileOrIsRefused()
    {
        const QSslConfiguration tls = WireServer::selfSigned();
        if (tls.isNull())
            QSKIP("no openssl");
        QSslConfiguration trusting = QSslConfiguration::defaultConfiguration();
        SkillServer server(tls);
        server.replies = {file("Навык")};
        const auto load = [](AgentDesk &desk, const QString &link) {
            desk.call("setAgentSkill", {u"coding"_s, link});
            Desk::waitFor([&] { return desk.read("loadingSkills").toStringList().isEmpty(); });
            return desk.message();
        };
        AgentDesk wary;
        QCOMPARE(load(wary, server.link()), lost); // nobody trusts this certificate
        QVERIFY(server.requests.isEmpty());
        trusting.addCaCertificate(tls.localCertificate());
        QSslConfiguration::setDefaultConfiguration(trusting);
        AgentDesk desk;

        const QString https = u"Нужна HTTPS-ссылка на файл SKILL.md в GitHub"_s;
        const QString page = u"Откройте SKILL.md в GitHub и скопируйте ссылку на файл"_s;
        const QString other = u"Поддерживается Markdown-файл GitHub"_s;
        const QString pages = u"https://pages.test"_s;
        const QString files = u"https://"_s + server.host();
        const QList<std::tuple<QString, QString>> links{
            {u"http://pages.test/a/b/blob/main/SKILL.md"_s, https},
            {u"https://me@pages.test/a/b/blob/main/SKILL.md"_s, https},
            {pages + u"/a/b/blob/main/SKILL.md?raw=1"_s, https},
            {u"SKILL.md"_s, https},
            {pages + u"/a/b/SKILL.md"_s, page},
            {pages + u"/a/b/raw/main/SKILL.md"_s, page},
            {pages + u"/a/b/blob/SKILL.md"_s, page},
            {pages + u"/a/b/blob/main/SKILL.txt"_s, other},
            {u"https://127.0.0.1/a/SKILL.md"_s, other},
            {u"https://pages.test.evil/a/b/blob/main/SKILL.md"_s, other},
            {u" "_s + pages + u"//a/b/blob/main/x%20y/SKILL.MD#part "_s, {}},
            {files + u"/a/b/main/SKILL.md#part"_s, {}},
        };
        for (const auto &[link, refusal] : links)
            QCOMPARE(load(desk, link), refusal);
        QCOMPARE(server.requests.size(), 2);
        QVERIFY(server.requests[0].line.startsWith("GET /a/b/main/x%20y/SKILL.MD HTTP"));
        QVERIFY(server.requests[1].line.startsWith("GET /a/b/main/SKILL.md HTTP"));
        QCOMPARE(desk.skill(u"coding"_s)[u"address"_s], files + u"/a/b/main/SKILL.md"_s);
        QCOMPARE(desk.profile(u"coding"_s)[u"status"_s], u"Загружен · со следующей задачи"_s);

        const QString id = desk.add(u"A"_s);
        desk.call("addAgent", {u"B"_s, u""_s, u"SKILL.md"_s});
        QCOMPARE(desk.message(), https);
        QCOMPARE(desk.agents().size(), 2); // though its skill was refused

        const QByteArray whole(65536, 'x');
        const QList<std::pair<WireReply, bool>> replies{
            {file("one\ntwo\nfour"), true},
            {file({}), false},
            {file("\xef\xbb\xbf"), false},
            {file(whole + 'x'), false},
            {WireReply{{{WireReply::head(200, {})}, {whole + "xx"}}, WireReply::End::Silence}, false},
            {WireReply::document(302, QByteArray("x"), "Location: " + files.toUtf8() + "/a.md\r\n"), false},
            {WireReply::document(404, QByteArray("x")), false},
            {WireReply::document(201, QByteArray("x")), false},
            {WireReply{{{WireReply::head(200, "Content-Length: 9\r\n") + "half"}}, WireReply::End::Reset}, false},
            {file(whole), true},
            {file("one\nzwo\u202e\nfour\nfive"), true},
            {file("one\nthree\nfour\nfive"), true},
        };
        for (const auto &[reply, taken] : replies) {
            const QVariantMap before = desk.skill(id);
            server.replies = {reply, file("more")};
            desk.call("setAgentSkill", {id, server.link()});
            QVERIFY(Desk::waitFor([&] { return desk.read("loadingSkills").toStringList().isEmpty(); }));
            QCOMPARE(desk.message(), taken ? QString() : lost);
            QVERIFY((desk.skill(id) != before) == taken);
        }
        const QVariantMap skill = desk.skill(id);
        QCOMPARE(skill[u"changes"_s].toString(), u"− zwo\\u{202e}\n+ three\n"_s);
        QCOMPARE(fields(QJsonObject::fromVariantMap(skill), u"text bytes given skill_url address"_s),
                 u"one\nthree\nfour\nfive 19 19 "_s + server.link() + u' ' + server.link());
        QVERIFY(!desk.profile(id).contains(u"instructions"_s));

        // The later one counts, even if the first answer is the last to come.
        server.replies = {WireReply{{{file("slow").steps[0].bytes, 300}}}, file("quick")};
        desk.call("setAgentSkill", {id, server.link()});
        QVERIFY(Desk::waitFor([&, n = server.requests.size()] { return server.requests.size() > n; }));
        desk.call("setAgentSkill", {id, server.link()});
        QVERIFY(Desk::waitFor([&] { return desk.skill(id)[u"text"_s] == u"quick"_s; }));
        QTest::qWait(400);
        QCOMPARE(desk.skill(id)[u"text"_s], u"quick"_s);

        // A skill that came after a change of the network stays when that is taken back.
        desk.call("linkAgent", {id, u"coding"_s});
        server.replies = {file("fresh")};
        desk.call("setAgentSkill", {id, server.link()});
        QVERIFY(Desk::waitFor([&] { return desk.skill(id)[u"text"_s] == u"fresh"_s; }));
        desk.call("undoNetwork");
        QCOMPARE(fields(desk.agents()[0], u"parent instructions"_s), u" fresh"_s);

        server.replies = {file("late")};
        desk.call("setAgentSkill", {id, server.link()});
        desk.call("removeAgent", {id});
        desk.call("undoNetwork");
        QVERIFY(desk.read("loadingSkills").toStringList().isEmpty());
        QCOMPARE(desk.skill(id)[u"text"_s], u"fresh"_s);
        desk.call("setAgentSkill", {id, server.link()});
        QVERIFY(Desk::waitFor([&, n = server.requests.size()] { return server.requests.size() > n; }));
        desk.call("setAgentSkill", {id, u" "_s});
        QTest::qWait(200);
        QCOMPARE(desk.skill(id), QVariantMap());
        QVERIFY(!desk.profile(id).contains(u"skill_url"_s));
    }

    /// Of two model servers each sees what is for it; a switched-off agent holds nobody up; and a reviewer that objects
    /// for the third time asks.
    void aChainWorksOnModelsOfItsOwn()
    {
        Model shared;
        Model own;
        shared.answers[u"workflow_reviewer"_s] = {
            u"{\"verdict\":\"REJECT\",\"confidence\":0.9,\"issues\":[\"Довод\"],\"required_changes\":[\"Иначе\"],\"summary\":\"Нет\"}"_s};
        AgentDesk desk;
        desk.connectTo(shared.url(), u"geheim-schluessel"_s);
        desk.createProject();
        const QString off = desk.add(u"Выключен"_s);
        const QString first = desk.add(u"Своя модель"_s);
        const QString last = desk.add(u"Проверка"_s);
        desk.call("configureAgent", {first, u"ПРАВИЛО"_s, 50, u"specialist"_s});
        desk.call("configureAgent", {last, u""_s, 50, u"review"_s});
        desk.call("connectAgents", {off, first});
        desk.call("connectAgents", {first, last});
        desk.call("connectAgents", {last, u"planner"_s});
        desk.call("setAgentEnabled", {off, false});
        desk.call("setPreference", {u"automatic_routing"_s, false});
        desk.call("connectServer", {own.url(), u"other"_s, u"eigener-schluessel"_s, first});
        QVERIFY2(Desk::waitFor([&] { return !desk.profile(first)[u"api"_s].toMap().isEmpty(); }),
                 qPrintable(desk.message()));

        desk.call("start", {u"Создай калькулятор"_s, false, 1000000, u""_s, u"[]"_s});
        if (!Desk::waitFor([&] { return desk.phase() == u"CLARIFICATION"_s || desk.phase() == u"FAILED"_s; })
            || desk.phase() == u"FAILED"_s)
            QFAIL(qPrintable(desk.phase() + shared.roles.join(u' ') + own.roles.join(u' ') + desk.message()
                             + desk.backend->resultReport()));
        QCOMPARE(own.roles, (QStringList{QString(), u"specialist"_s, u"specialist"_s, u"specialist"_s}));
        QCOMPARE(shared.roles.count(u"workflow_reviewer"_s), 3);
        QCOMPARE(shared.roles.count(u"specialist"_s) + shared.roles.count(u"planner"_s), 0);
        QCOMPARE(own.requests.last().json()["model"_L1].toString(), u"other"_s);
        QCOMPARE(own.requests.last().header("Authorization"), "Bearer eigener-schluessel");
        QCOMPARE(
            fields(own.asked.last().input, u"agent_rules artifact.disabled_dependencies artifact.feedback.verdict"_s),
            u"ПРАВИЛО ['%1'] REJECT"_s.arg(off));
        desk.call("clarify", {u"Остановить задачу"_s});
        QVERIFY(desk.waitForPhase(u"CANCELLED"_s));

        // With its agent goes the connection, and comes back with it.
        desk.call("removeAgent", {first});
        QVERIFY(desk.document()[u"agent_api"_s].toObject().isEmpty());
        QCOMPARE(CredentialStore::read(agentTarget(first)), QString());
        const auto give = [&](const QString &agent) {
            desk.call("connectServer", {own.url(), u"other"_s, u"eigener-schluessel"_s, agent});
            return Desk::waitFor([&] { return !desk.profile(agent)[u"api"_s].toMap().isEmpty(); });
        };
        QVERIFY(give(last));
        desk.call("undoNetwork");
        QCOMPARE(desk.profile(last)[u"api"_s].toMap()[u"url"_s], own.url());
        QCOMPARE(CredentialStore::read(agentTarget(first)), u"eigener-schluessel"_s);
        QCOMPARE(desk.profile(first)[u"api"_s].toMap()[u"url"_s], own.url());
        const QString guest = desk.add(u"Гость"_s);
        QVERIFY(give(guest));
        desk.call("undoNetwork");
        QVERIFY(!desk.document()[u"agent_api"_s].toObject().contains(guest));
        QCOMPARE(CredentialStore::read(agentTarget(guest)), QString());
    }

    void theChiefGivesOrdersInAutomaticMode()
    {
        Model model;
        AgentDesk desk;
        desk.connectTo(model.url(), u"geheim-schluessel"_s);
        desk.createProject();
        const QString id = desk.add(u"Художник"_s);
        QJsonObject order = parseObject(ModelServer::unasking({{}, u"orchestrator"_s, {}, {}, 0}));
        const QString plain = json(order);
        order["delegations"_L1] = QJsonArray{QJsonObject{{u"agent_id"_s, id}, {u"task"_s, u"Нарисуй"_s}}};
        model.answers[u"orchestrator"_s] = {json(order), plain};
        desk.call("start", {u"Создай калькулятор"_s, false, 1000000, u""_s, u"[]"_s});
        QVERIFY2(desk.waitForPhase(u"COMPLETED"_s), qPrintable(desk.message() + desk.backend->resultReport()));
        QCOMPARE(model.roles.mid(0, 3), (QStringList{u"orchestrator"_s, u"specialist"_s, u"orchestrator"_s}));
        QVERIFY(model.asked[1].input["agent_rules"_L1].toString().endsWith(u"Текущее поручение главного: Нарисуй"_s));
        QVERIFY(desk.backend->resultReport().contains(u"Результаты ваших агентов\n• Художник — Итог"_s));
    }
};

QTEST_GUILESS_MAIN(AgentsTest)
#include "tst_agents.moc"
