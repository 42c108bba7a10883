// The whole window, without a screen: worked by mouse and keyboard, against the real backend on the demonstration
// model. A warning of a scene fails the test.

#include "files.h"
#include "json_text.h"
#include "media_worker.h"
#include "process_containment.h"
#include "roles.h"
#include "store.h"
#include "window_desk.h"

#include <QAccessible>
#include <QClipboard>
#include <QDir>
#include <QDropEvent>
#include <QFile>
#include <QMimeData>
#include <QQuickStyle>
#include <QRegularExpression>
#include <QTest>
#include <QtQml/qqmlextensionplugin.h>

#include <algorithm>

Q_IMPORT_QML_PLUGIN(VeskPlugin)

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

const QString calculator = u"Создай калькулятор"_s;

/// The row of a list in view.
QQuickItem *rowAt(QQuickItem *list, int place)
{
    QQuickItem *row = nullptr;
    if (list)
        QMetaObject::invokeMethod(list, "itemAtIndex", Q_RETURN_ARG(QQuickItem *, row), Q_ARG(int, place));
    return row;
}

} // namespace

class WindowTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup() { desk.reset(); }

    void aProjectIsMadeFromTheFirstWordToTheLast();
    void aRefusedLineStaysInTheInput();
    void aRunIsPausedResumedAndStoppedWhileRequestsWait();
    void aPlanIsContinuedAndItsCommandAllowedByAClick();
    void aNarrowWindowHasRoomForOneColumn();
    void theTeamMayStandAtTheLeft();
    void withoutMotionNothingMoves();
    void anAgentIsOpenedByAClickAndItsSettingsByItsId();
    void anAgentIsRemovedAfterAQuestionAndBroughtBack();
    void whatIsTypedIsShownAsItIs();
    void aLongConversationFollowsItsEndUntilOneScrollsAway();
    void aMessageIsReadAndCopiedWithoutAMouse();
    void filesAreDroppedChosenAndTakenAwayAgain();

private:
    void startRun();
    std::unique_ptr<WindowDesk> desk;
    /// Takes what the window gives to the desktop; nothing without a desktop.
    QTemporaryDir desktop;
};

void WindowTest::initTestCase()
{
    registerPrompts();
    QQuickStyle::setStyle(u"Basic"_s);
    QAccessible::setActive(true);
    QFile opener(desktop.filePath(u"xdg-open"_s));
    QVERIFY(opener.open(QIODevice::WriteOnly));
    opener.write("#!/bin/sh\necho \"$1\" >>\"${0%/*}/opened\"\n");
    opener.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    qputenv("PATH", desktop.path().toUtf8() + ':' + qgetenv("PATH"));
}

void WindowTest::init()
{
    // That there is no keyring here says nothing about the window.
    QTest::failOnWarning(QRegularExpression(u"^(?!Связка ключей)"_s));
    desk = std::make_unique<WindowDesk>();
}

void WindowTest::startRun()
{
    desk->app().createProject(u"Проба"_s, desk->path(u"projects"_s));
    desk->type(calculator);
    desk->press(Qt::Key_Return);
}

void WindowTest::aProjectIsMadeFromTheFirstWordToTheLast()
{
    QVERIFY(desk->item(u"welcomeDemo"_s));
    QCOMPARE(desk->text(u"statusLine"_s), u"Подключение модели — в настройках API"_s);
    QVERIFY(desk->tabTo(u"newProject"_s));
    desk->press(Qt::Key_Return);
    QTRY_VERIFY(desk->isOpen(u"projectDialog"_s));
    desk->type(u" "_s);
    desk->press(Qt::Key_Return);
    QTRY_COMPARE(desk->text(u"messageStrip"_s, "message"), u"Укажите название проекта."_s);
    QVERIFY(desk->isOpen(u"projectDialog"_s));
    desk->press(Qt::Key_Backspace);
    desk->type(u"Счёты"_s);
    QVERIFY(desk->tabTo(u"createProject"_s));
    desk->press(Qt::Key_Space);
    QTRY_VERIFY(!desk->isOpen(u"projectDialog"_s));
    QTRY_COMPARE(desk->text(u"projectButton"_s), u"Счёты"_s);

    QVERIFY(desk->tabTo(u"chatInput"_s));
    desk->type(calculator);
    desk->press(Qt::Key_Return);
    QCOMPARE(desk->text(u"chatInput"_s), QString());
    QVERIFY(desk->waitForPhase(u"CLARIFICATION"_s));
    QTRY_VERIFY(desk->item(u"decisionCard"_s));
    QVERIFY(!desk->item(u"welcomeDemo"_s));
    QCOMPARE(desk->text(u"note"_s), u"Нужен ваш ответ"_s);
    QCOMPARE(desk->text(u"composerHint"_s), u"Выберите вариант выше или напишите свой ответ"_s);
    QCOMPARE(desk->text(u"teamState"_s), u"Главный агент ждёт ваше решение."_s);
    QVERIFY(desk->click(u"ownAnswer"_s));
    QVERIFY(desk->item(u"chatInput"_s)->hasActiveFocus());
    while (desk->phase() != "COMPLETED"_L1) {
        QVERIFY(QTest::qWaitFor([&] { return desk->item(u"decisionOption0"_s) || desk->phase() == "COMPLETED"_L1; },
                                30000));
        if (desk->item(u"decisionOption0"_s)) {
            QVERIFY(desk->click(u"decisionOption0"_s));
            QTRY_VERIFY(!desk->item(u"decisionCard"_s));
        }
    }

    QTRY_VERIFY(desk->item(u"reportDetails"_s));
    QStringList told;
    const QList<QQuickItem *> items = desk->visibleItems();
    for (const QQuickItem *item : items) {
        if (item->objectName() == "messageText"_L1)
            told.append(item->property("text").toString());
    }
    QCOMPARE(told.value(0), calculator);
    QVERIFY(told.contains(u"Готово. Результат сохранён в проекте.\n"
                          "Выполненные проверки и ограничения — в подробностях."_s));
    QVERIFY(told.contains(u"Создать локальный калькулятор для браузера, без аккаунта и внешних зависимостей?"_s));
    QVERIFY(desk->click(u"copyReport"_s));
    QCOMPARE(desk->text(u"copyReport"_s), u"Скопировано"_s);
    QVERIFY(QGuiApplication::clipboard()->text().contains(u"\n## Файлы\n\n- `"_s));
    QVERIFY(desk->text(u"progressNote"_s).startsWith(u"За "_s));
    QVERIFY(desk->click(u"reportDetails"_s));
    QTRY_VERIFY(desk->isOpen(u"details"_s));
    QVERIFY(desk->text(u"plainText"_s).startsWith(u"Задача завершена."_s));
    QVERIFY(desk->text(u"plainText"_s).contains(u"\n\n"_s));
    desk->press(Qt::Key_Escape);
    QTRY_VERIFY(!desk->isOpen(u"details"_s));
    QVERIFY(desk->click(u"expandProgress"_s));
    QTRY_VERIFY(desk->isOpen(u"details"_s));
    QVERIFY(desk->text(u"plainText"_s).contains(u"Запрос принят\n"_s));
    desk->press(Qt::Key_Escape);

    if (QGuiApplication::platformName() == "offscreen"_L1) {
        QTest::ignoreMessage(QtWarningMsg,
                             QRegularExpression(u"does not support QPlatformServices::open(Url|Document)"_s));
        QVERIFY(desk->click(u"openResult"_s));
        QTRY_VERIFY(desk->text(u"messageStrip"_s, "message").contains(u"не смог открыть файл"_s));
    } else {
        const QByteArray folder = QUrl::fromLocalFile(desk->app().root()).toEncoded();
        const QByteArray page = folder + "/calculator.html\n";
        QVERIFY(desk->click(u"openResult"_s));
        QTRY_COMPARE(contentOf(desktop.filePath(u"opened"_s)), page); // two at once would come in any order
        QVERIFY(desk->click(u"openFolder"_s));
        QTRY_COMPARE(contentOf(desktop.filePath(u"opened"_s)), page + folder + '\n');
    }

    QCOMPARE(desk->text(u"filesToggle"_s), u"Файлы · 2"_s);
    QVERIFY(desk->click(u"filesToggle"_s));
    QTRY_VERIFY(rowAt(desk->item(u"fileList"_s), 1));
    QCOMPARE(desk->text(u"panelTitle"_s), u"Файлы проекта"_s);
    const int page = desk->app().files()[0].toMap().value(u"path"_s) == u"calculator.html"_s ? 0 : 1;
    QVERIFY(desk->click(rowAt(desk->item(u"fileList"_s), page)));
    CodeView &viewer = *desk->app().property("viewer").value<CodeView *>();
    QTRY_COMPARE(viewer.text(0, viewer.rowCount()), desk->app().fileContent(u"calculator.html"_s));
    QVERIFY(viewer.text(0, 0).contains(u"<!doctype"_s, Qt::CaseInsensitive));
    QVERIFY(desk->click(u"fileHistory"_s));
    QTRY_VERIFY(desk->isOpen(u"details"_s));
    QTRY_VERIFY(desk->text(u"fieldValue"_s).contains(u" · Разработчик · "_s));
    QVERIFY(desk->click(u"rawData"_s));
    QTRY_VERIFY(desk->text(u"detailsText"_s).startsWith(u"[\n    {"_s));
    desk->press(Qt::Key_Escape);
    QTRY_VERIFY(!desk->isOpen(u"details"_s));

    save(desk->app().root() + u"/calculator.html"_s, "first\nsecond\n");
    desk->app().lookForEdits();
    QTRY_VERIFY(desk->item(u"compareEditcalculator.html"_s));
    QVERIFY(desk->click(u"compareEditcalculator.html"_s));
    QTRY_VERIFY(desk->isOpen(u"differences"_s));
    QTRY_VERIFY(rowAt(desk->item(u"differenceLines"_s), 1));
    QVERIFY(desk->click(u"besideToggle"_s));
    QTRY_VERIFY(rowAt(desk->item(u"differenceLines"_s), 2)); // one removed, two added
    desk->press(Qt::Key_Escape);
    QTRY_VERIFY(!desk->isOpen(u"differences"_s));
    QVERIFY(desk->click(u"undoEditcalculator.html"_s));
    QTRY_VERIFY(desk->app().property("handEdits").toList().isEmpty());
    QVERIFY(contentOf(desk->app().root() + u"/calculator.html"_s).startsWith("<!doctype"));

    QVERIFY(desk->click(u"restoreFiles"_s));
    QTRY_VERIFY(desk->isOpen(u"restore"_s));
    for (const QString &way : {u"doRestore"_s, u"undoRestore"_s}) {
        QTRY_VERIFY(desk->item(way)->isEnabled());
        QVERIFY(desk->click(way));
        QTRY_COMPARE(QFile::exists(desk->app().root() + u"/calculator.html"_s), way == u"undoRestore"_s);
        QTRY_VERIFY(!desk->app().property("restoring").toBool());
    }
    desk->press(Qt::Key_Escape);
    QTRY_VERIFY(!desk->isOpen(u"restore"_s));

    QVERIFY(desk->click(u"panelMenuButton"_s));
    QTRY_VERIFY(desk->isOpen(u"panelMenu"_s));
    for (int i = 0; i < 3; ++i)
        desk->press(Qt::Key_Down);
    desk->press(Qt::Key_Return);
    QTRY_COMPARE(desk->text(u"panelTitle"_s), u"События"_s);

    QVERIFY(desk->click(u"threadMenuButton"_s));
    QTRY_VERIFY(desk->isOpen(u"threadMenu"_s));
    desk->press(Qt::Key_Down);
    desk->press(Qt::Key_Return);
    QTRY_VERIFY(desk->isOpen(u"renameBox"_s));
    desk->type(u"Мой счёт"_s);
    desk->press(Qt::Key_Return);
    QTRY_VERIFY(!desk->isOpen(u"renameBox"_s));
    QCOMPARE(desk->app().tasks()[0].toMap().value(u"spec"_s).toMap().value(u"title"_s).toString(), u"Мой счёт"_s);
    desk->item(u"threadList"_s)->forceActiveFocus(Qt::TabFocusReason);
    desk->press(Qt::Key_Menu);
    QTRY_VERIFY(desk->isOpen(u"threadMenu"_s));
    desk->press(Qt::Key_Down);
    desk->press(Qt::Key_Down);
    desk->press(Qt::Key_Return);
    QTRY_COMPARE(desk->app().tasks().size(), 0);
    QVERIFY(desk->click(u"newChat"_s));
    QTRY_VERIFY(desk->item(u"welcomeSite"_s));
    QVERIFY(desk->item(u"chatInput"_s)->hasActiveFocus());
    QVERIFY(desk->click(u"welcomeSite"_s));
    QCOMPARE(desk->text(u"chatInput"_s), u"Создай сайт "_s);
    QVERIFY(desk->item(u"chatInput"_s)->hasActiveFocus());
}

void WindowTest::aRefusedLineStaysInTheInput()
{
    // Where the project's folder is to be made stands a file.
    QFile file(desk->path(u"Documents"_s));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QVERIFY(!desk->item(u"messageStrip"_s));
    desk->type(calculator);
    desk->press(Qt::Key_Return, Qt::ShiftModifier);
    desk->press(Qt::Key_Return);
    QCOMPARE(desk->text(u"chatInput"_s), calculator + u'\n');
    QTRY_VERIFY(desk->item(u"messageStrip"_s));
    QVERIFY(!desk->text(u"messageStrip"_s, "message").isEmpty());
    file.remove();
    QVERIFY(desk->click(u"sendButton"_s));
    QTRY_VERIFY(!desk->item(u"messageStrip"_s));
    QCOMPARE(desk->text(u"chatInput"_s), QString());
    QTRY_COMPARE(desk->text(u"projectButton"_s), u"Мой проект"_s);
}

void WindowTest::aRunIsPausedResumedAndStoppedWhileRequestsWait()
{
    QVERIFY(!desk->item(u"pauseButton"_s));
    startRun();
    // At once: the run's first question, which comes soon, would take the line for its answer.
    desk->type(u"Создай второй калькулятор"_s);
    desk->press(Qt::Key_Return);
    QTRY_COMPARE(desk->text(u"queueText"_s), u"В очереди 1"_s);
    QVERIFY(desk->item(u"pauseButton"_s) && desk->item(u"composerStop"_s));
    QVERIFY(!desk->item(u"newChat"_s)->isEnabled());
    QVERIFY(desk->click(u"queueAction"_s));
    QTRY_VERIFY(desk->isOpen(u"queueDialog"_s));
    QVERIFY(desk->click(u"cancelQueued"_s));
    QTRY_VERIFY(!desk->item(u"queueLine"_s));
    QVERIFY(desk->click(u"undoQueue"_s));
    QTRY_COMPARE(desk->text(u"queueText"_s), u"В очереди 1"_s);
    QVERIFY(desk->click(u"clearQueue"_s));
    QTRY_VERIFY(!desk->item(u"queueLine"_s));
    desk->press(Qt::Key_Escape);
    QTRY_VERIFY(!desk->isOpen(u"queueDialog"_s));

    QVERIFY(desk->click(u"pauseButton"_s));
    QTRY_COMPARE(desk->text(u"note"_s), u"На паузе"_s);
    QCOMPARE(desk->text(u"pauseButton"_s), u"▶"_s);
    QVERIFY(desk->click(u"pauseButton"_s));
    QTRY_COMPARE(desk->text(u"pauseButton"_s), u"Ⅱ"_s);
    desk->app().start(u"Создай третий калькулятор"_s, false, 1000000, {}, u"[]"_s);
    QVERIFY(desk->click(u"stopButton"_s));
    QTRY_COMPARE(desk->text(u"queueText"_s), u"В очереди 1 · приостановлена"_s);
    QCOMPARE(desk->phase(), u"CANCELLED"_s);
    QCOMPARE(desk->text(u"progressState"_s), u"Работа остановлена"_s);
    QVERIFY(!desk->item(u"pauseButton"_s) && !desk->item(u"stopButton"_s) && !desk->item(u"composerStop"_s));
    QVERIFY(desk->click(u"queueAction"_s));
    QTRY_VERIFY(!desk->item(u"queueLine"_s));
    QVERIFY(desk->click(u"composerStop"_s));
    QTRY_COMPARE(desk->phase(), u"CANCELLED"_s);
    QCOMPARE(desk->app().tasks().size(), 2);
}

void WindowTest::aPlanIsContinuedAndItsCommandAllowedByAClick()
{
    desk->app().setPreference(u"computer_access"_s, false);
    desk->app().createProject(u"Проба"_s, desk->path(u"projects"_s));
    const QString hidden = u"[\"a\u202eb\"]"_s;
    desk->app().start(u"Создай калькулятор и запусти сборку"_s, true, 1000000, u"/usr/bin/true"_s, hidden);
    QVERIFY(desk->waitForPhase(u"CLARIFICATION"_s));
    QVERIFY(desk->click(u"decisionOption0"_s));
    QVERIFY(desk->waitForPhase(u"PREVIEW"_s));
    QTRY_VERIFY(desk->item(u"previewCard"_s));
    QVERIFY(desk->click(u"cardAction"_s, desk->item(u"previewCard"_s)));

    const auto pending = [this] { return desk->state()[u"pending"_s].toList().size(); };
    QTRY_COMPARE_WITH_TIMEOUT(pending(), 1, 15000);
    QTRY_VERIFY(desk->item(u"permissionCard"_s));
    QCOMPARE(desk->text(u"note"_s), u"Нужно ваше разрешение"_s);
    QVERIFY(desk->click(u"cardAction"_s, desk->item(u"permissionCard"_s)));
    QTRY_VERIFY(desk->isOpen(u"permissions"_s));
    const QString shown = desk->text(u"plainText"_s);
    QCOMPARE(shown, u"/usr/bin/true\n    a\\u202eb"_s); // what turns a text around is seen as a number
    QVERIFY(desk->click(u"allowCommand"_s));
    QTRY_COMPARE(pending(), 0);
    QTRY_VERIFY(!desk->isOpen(u"permissions"_s));
}

void WindowTest::aNarrowWindowHasRoomForOneColumn()
{
    const auto open
        = [this] { return std::pair(desk->get("sidebarOpen").toBool(), desk->get("inspectorOpen").toBool()); };
    desk->screen().setWidth(1150);
    QTRY_COMPARE(open(), std::pair(true, true));
    desk->screen().setWidth(1149);
    QTRY_COMPARE(open(), std::pair(true, false));
    desk->screen().setWidth(1249);
    QVERIFY(desk->click(u"filesToggle"_s));
    QTRY_COMPARE(open(), std::pair(false, true));
    QVERIFY(desk->click(u"showSidebar"_s));
    QTRY_COMPARE(open(), std::pair(true, false));
    desk->screen().setWidth(1250);
    QVERIFY(desk->click(u"agentsToggle"_s));
    QTRY_COMPARE(open(), std::pair(true, true));
    QVERIFY(desk->click(u"agentsToggle"_s));
    QTRY_COMPARE(open(), std::pair(true, false));
    QTRY_VERIFY(!desk->item(u"rightColumn"_s));
    QVERIFY(desk->click(u"hideSidebar"_s));
    QTRY_VERIFY(!desk->item(u"leftColumn"_s));
    QTRY_COMPARE(desk->item(u"chatColumn"_s)->width(), 1250);
}

void WindowTest::theTeamMayStandAtTheLeft()
{
    const auto leftOf
        = [this](const char *name) { return int(desk->item(QString::fromLatin1(name))->mapToScene({}).x()); };
    const auto middle = [&](const char *handle) { return QPoint(leftOf(handle) + 3, 400); };
    QVERIFY(leftOf("leftColumn") < leftOf("chatColumn") && leftOf("chatColumn") < leftOf("rightColumn"));
    desk->drag(middle("leftHandle"), middle("leftHandle") + QPoint(30, 0));
    desk->drag(middle("rightHandle"), middle("rightHandle") + QPoint(-40, 0));
    QCOMPARE(desk->get("sidebarWidth").toInt(), 266);
    QCOMPARE(desk->get("inspectorWidth").toInt(), 430);
    QTRY_COMPARE(desk->item(u"leftColumn"_s)->width(), 266);

    desk->app().setPreference(u"team_left"_s, true);
    QTRY_VERIFY(leftOf("rightColumn") == 0);
    QVERIFY(leftOf("rightColumn") < leftOf("chatColumn") && leftOf("chatColumn") < leftOf("leftColumn"));
    desk->drag(middle("leftHandle"), middle("leftHandle") + QPoint(-30, 0));
    QCOMPARE(desk->get("sidebarWidth").toInt(), 296);
    desk->open();
    QCOMPARE(desk->get("sidebarWidth").toInt(), 296);
    QTRY_COMPARE(leftOf("rightColumn"), 0);
}

void WindowTest::withoutMotionNothingMoves()
{
    desk->app().setPreference(u"animations"_s, true);
    QTRY_VERIFY(desk->item(u"ambientMesh"_s));
    const QObject *mesh = desk->item(u"ambientMesh"_s);
    QTRY_VERIFY(mesh->property("drift").toDouble() > 0);
    desk->app().setPreference(u"animations"_s, false);
    QVERIFY(!desk->get("animated").toBool());
    QVERIFY(!mesh->property("animate").toBool());
    QVERIFY(desk->click(u"hideSidebar"_s));
    QVERIFY(!desk->item(u"leftColumn"_s));
}

void WindowTest::anAgentIsOpenedByAClickAndItsSettingsByItsId()
{
    QVERIFY(desk->click(u"planner"_s));
    QVERIFY(desk->click(u"inspectAgent"_s));
    QTRY_VERIFY(desk->isOpen(u"agentDetails"_s));
    QCOMPARE(desk->screen().findChild<QObject *>(u"agentDetails"_s)->property("title").toString(), u"Планировщик"_s);
    desk->press(Qt::Key_Escape);
    desk->screen().setProperty("settingsAgent", u"__api__"_s);
    QTRY_VERIFY(desk->isOpen(u"connection"_s));
    desk->press(Qt::Key_Escape);
    QTRY_VERIFY(!desk->isOpen(u"connection"_s));
    desk->screen().setProperty("settingsAgent", u"__new__"_s);
    QTRY_VERIFY(desk->isOpen(u"workspaceSettings"_s));
    const QObject *settings = desk->screen().findChild<QObject *>(u"workspaceSettings"_s);
    QCOMPARE(settings->property("adding").toBool(), true);
    desk->screen().setProperty("settingsAgent", u"planner"_s);
    QCOMPARE(settings->property("adding").toBool(), false);
    QCOMPARE(settings->property("selectedAgent").toString(), u"planner"_s);
}

void WindowTest::anAgentIsRemovedAfterAQuestionAndBroughtBack()
{
    const QString agent = desk->app().addAgent(u"Дизайн"_s, u"coding"_s, {});
    QTRY_VERIFY(desk->item(agent));
    QVERIFY(desk->tabTo(agent));
    desk->press(Qt::Key_Delete);
    QTRY_VERIFY(desk->isOpen(u"removeAgent"_s));
    desk->press(Qt::Key_Return);
    QTRY_VERIFY(!desk->isOpen(u"removeAgent"_s));
    QVERIFY(desk->item(agent));
    desk->press(Qt::Key_Delete);
    QVERIFY(desk->click(u"confirmRemoval"_s));
    QTRY_VERIFY(!desk->item(agent));
    QTRY_COMPARE(desk->text(u"networkChange"_s), u"Агент «Дизайн» удалён"_s);
    QVERIFY(desk->click(u"undoNetwork"_s));
    QTRY_VERIFY(desk->item(agent));
}

void WindowTest::whatIsTypedIsShownAsItIs()
{
    const QString line = u"Создай <b>калькулятор</b> <img src=\"http://127.0.0.1:9/x.png\"> https://a.b &amp;"_s;
    desk->app().createProject(u"<i>Проба</i>"_s, desk->path(u"projects"_s));
    desk->type(line);
    desk->press(Qt::Key_Return);
    QTRY_COMPARE(desk->text(u"messageText"_s), line);
    desk->app().stop();
    desk->app().renameTask(desk->app().tasks()[0].toMap().value(u"id"_s).toString(), u"<u>Имя</u>"_s);
    QTRY_VERIFY(rowAt(desk->item(u"threadList"_s), 0)->property("row").toMap()[u"spec"_s].toMap()[u"title"_s]
                == u"<u>Имя</u>"_s);
    desk->screen().setProperty("page", u"Выбор проекта"_s);
    QTRY_VERIFY(rowAt(desk->item(u"projectList"_s), 0));
    QString seen;
    const QList<QQuickItem *> items = desk->visibleItems();
    for (const QQuickItem *item : items) {
        const QVariant format = item->property("textFormat");
        const QString text = item->property("text").toString();
        if (!format.isValid() || !text.contains(u'<'))
            continue;
        seen += text;
        QVERIFY2(format.toInt() == Qt::PlainText, qPrintable(text));
    }
    QVERIFY(seen.contains(u"<b>"_s) && seen.contains(u"<i>"_s) && seen.contains(u"<u>"_s));
}

void WindowTest::aLongConversationFollowsItsEndUntilOneScrollsAway()
{
    desk->app().createProject(u"Проба"_s, desk->path(u"projects"_s));
    const QString conversation = u"chat:"_s + desk->app().projects()[0].toMap().value(u"id"_s).toString();
    desk->close();
    {
        Store store(desk->data() + u"/vesk.sqlite"_s);
        store.atomic([&] {
            for (int i = 0; i < 2000; ++i) {
                const QString id = QString::number(i);
                const QString lines = (u"Строка "_s + id + u"\\n"_s).repeated(i % 7 + 1);
                store.put(u"messages"_s, id, conversation,
                          object(u"{'id':'%1','role':'user','content':'%2','kind':'message'}"_s.arg(id, lines)));
            }
        });
    }
    desk->open();
    QQuickItem *list = desk->item(u"messageList"_s);
    QVERIFY(list);
    const auto atEnd = [&] { return list->property("atYEnd").toBool(); };
    const auto topRow = [&] {
        int row = -1;
        QMetaObject::invokeMethod(list, "indexAt", Q_RETURN_ARG(int, row), Q_ARG(double, 100),
                                  Q_ARG(double, list->property("contentY").toDouble() + 40));
        return row;
    };
    QCOMPARE(list->property("count").toInt(), 2000);
    QTRY_VERIFY(atEnd());
    desk->type(u"Напиши письмо"_s);
    desk->press(Qt::Key_Return);
    QTRY_COMPARE(list->property("count").toInt(), 2002);
    QTRY_VERIFY(atEnd());
    QTRY_VERIFY(rowAt(list, 2001));

    const QPoint middle = list->mapToScene(QPointF(list->width() / 2, list->height() / 2)).toPoint();
    QTest::wheelEvent(&desk->screen(), middle, QPoint(0, 1200));
    QTRY_VERIFY(!atEnd());
    QVERIFY(!list->property("follow").toBool());
    const int kept = topRow();
    QVERIFY(kept > 0);
    desk->app().sendMessage(u"Напиши письмо"_s); // not typed here: nobody's place changes
    QTRY_COMPARE(list->property("count").toInt(), 2004);
    QCOMPARE(topRow(), kept);
    QVERIFY(!atEnd());
    QVERIFY(desk->click(u"toEnd"_s));
    QTRY_VERIFY(atEnd() && !desk->item(u"toEnd"_s));
    QTest::wheelEvent(&desk->screen(), middle, QPoint(0, 1200));
    QTRY_VERIFY(!atEnd());

    list->forceActiveFocus(Qt::TabFocusReason);
    desk->press(Qt::Key_PageUp);
    QTRY_VERIFY(topRow() < kept);
    for (int i = 0; i < 20 && !atEnd(); ++i)
        desk->press(Qt::Key_End);
    QVERIFY(atEnd());
    QVERIFY(list->property("follow").toBool());
    desk->app().sendMessage(u"Напиши письмо"_s);
    QTRY_COMPARE(list->property("count").toInt(), 2006);
    QTRY_VERIFY(atEnd());
}

void WindowTest::aMessageIsReadAndCopiedWithoutAMouse()
{
    desk->app().createProject(u"Проба"_s, desk->path(u"projects"_s));
    const QString line = u"Напиши письмо"_s;
    desk->type(line);
    desk->press(Qt::Key_Return);
    QTRY_VERIFY(rowAt(desk->item(u"messageList"_s), 1));
    QQuickItem *list = desk->item(u"messageList"_s);
    const auto reads = [&](int place) {
        const QQuickItem *text = desk->item(u"messageText"_s, rowAt(list, place));
        return text && text->hasActiveFocus();
    };
    const int last = list->property("count").toInt() - 1;
    for (int i = 0; i < 30 && !list->hasActiveFocus(); ++i)
        desk->press(Qt::Key_Tab);
    desk->press(Qt::Key_Return);
    QTRY_VERIFY(reads(last));
    desk->press(Qt::Key_Home, Qt::ControlModifier);
    desk->press(Qt::Key_Up);
    QTRY_VERIFY(reads(last - 1));
    desk->press(Qt::Key_Down);
    QTRY_VERIFY(reads(last));
    while (!reads(0))
        desk->press(Qt::Key_Up);
    desk->press(Qt::Key_Up); // there is none above
    QVERIFY(reads(0));
    desk->press(Qt::Key_A, Qt::ControlModifier);
    desk->press(Qt::Key_C, Qt::ControlModifier);
    QCOMPARE(QGuiApplication::clipboard()->text(), line);
    desk->press(Qt::Key_Escape);
    QVERIFY(!reads(0));
    QVERIFY(list->hasActiveFocus());
}

void WindowTest::filesAreDroppedChosenAndTakenAwayAgain()
{
    desk->app().createProject(u"Проба"_s, desk->path(u"projects"_s));
    save(desk->path(u"files/Заметка 1.txt"_s), "один");
    save(desk->path(u"chosen/две.svg"_s), "два");
    const auto chips = [&] {
        QStringList names;
        const QList<QQuickItem *> items = desk->visibleItems();
        for (const QQuickItem *item : items) {
            if (item->objectName() == "attachmentName"_L1)
                names.append(item->property("text").toString());
        }
        return names;
    };
    QMimeData dragged;
    dragged.setUrls({QUrl::fromLocalFile(desk->path(u"files/Заметка 1.txt"_s))});
    const QPoint middle(desk->screen().width() / 2, desk->screen().height() / 2);
    QDragEnterEvent enter(middle, Qt::CopyAction, &dragged, Qt::LeftButton, {});
    QCoreApplication::sendEvent(&desk->screen(), &enter);
    QVERIFY(enter.isAccepted());
    QDropEvent drop(middle, Qt::CopyAction, &dragged, Qt::LeftButton, {});
    QCoreApplication::sendEvent(&desk->screen(), &drop);
    QTRY_COMPARE(chips(), QStringList{u"Заметка 1.txt"_s});
    QVERIFY(desk->item(u"sendButton"_s)->isEnabled());

    QVERIFY(desk->click(u"attachButton"_s));
    QTRY_VERIFY(desk->isOpen(u"attachmentPicker"_s));
    desk->item(u"folderPath"_s)->forceActiveFocus();
    QCOMPARE(desk->text(u"folderPath"_s), desk->app().root());
    desk->press(Qt::Key_A, Qt::ControlModifier);
    desk->type(desk->path(u"chosen"_s));
    desk->press(Qt::Key_Return);
    QTRY_COMPARE(rowAt(desk->item(u"folderFiles"_s), 0) ? rowAt(desk->item(u"folderFiles"_s), 0)->property("text")
                                                        : QVariant(),
                 u"две.svg"_s);
    desk->press(Qt::Key_Return);
    QTRY_COMPARE(chips(), QStringList({u"Заметка 1.txt"_s, u"две.svg"_s}));
    QVERIFY(desk->click(u"removeAttachment"_s));
    QTRY_COMPARE(chips(), QStringList{u"две.svg"_s});

    QVERIFY(desk->click(u"sendButton"_s));
    QTRY_COMPARE(chips(), QStringList());
    QTRY_VERIFY(desk->item(u"messageAttachment"_s));
}

int main(int argc, char **argv)
{
    int code = 0;
    if (wasMediaWorker(argc, argv, code))
        return code;
    ProcessContainment::useGuard(QStringLiteral(VESK_GUARD_PROGRAM));
    QGuiApplication application(argc, argv);
    WindowTest test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_window.moc"
