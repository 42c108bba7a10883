// The whole application driven once without a person.

#include "self_test_ui.h"

#include "backend.h"
#include "budget.h"
#include "interface_options.h"
#include "phases.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QJsonDocument>
#include <QQmlApplicationEngine>
#include <QQuickWindow>

#include <algorithm>
#include <chrono>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace vesk {

namespace {

constexpr auto networkDelay = 120ms;
constexpr auto questionDelay = 280ms;
constexpr auto pageTime = 250ms;
constexpr auto timeLimit = 60s;

enum Code { Passed, NoFolder, NotCompleted, NoWindow, NotSaved, TimedOut, NotRenamed, NoEditor };

void leave(Code code)
{
    QCoreApplication::exit(code);
}

const QString &newTitle()
{
    static const QString title = u"Проверка переименования"_s;
    return title;
}

} // namespace

SelfTestUi::SelfTestUi(const QQmlApplicationEngine &engine, Backend &backend, const QString &temporaryFolder)
    : engine(engine)
    , backend(backend)
    , temporary(temporaryFolder)
{
    pageTimer.setInterval(pageTime);
    connect(&pageTimer, &QTimer::timeout, this, &SelfTestUi::showNextPage);
}

void SelfTestUi::begin(const QString &target, bool withWorkflow)
{
    folder = target;
    if (folder.isEmpty() || !QDir().mkpath(folder)) {
        QTimer::singleShot(0, this, [] { leave(NoFolder); });
        return;
    }
    backend.createProject(u"Калькулятор"_s, temporary + u"/project"_s);
    if (backend.root().isEmpty()) {
        QTimer::singleShot(0, this, [] { leave(NoFolder); });
        return;
    }
    if (withWorkflow)
        backend.addWorkflowTemplate();
    backend.addMemory(u"Constraints"_s, u"Калькулятор работает локально, без внешних зависимостей."_s);
    connect(&backend, &Backend::changed, this, &SelfTestUi::capture);
    connect(&backend.runner(), &Engine::finished, this, &SelfTestUi::finish);
    QTimer::singleShot(0, this, [this] {
        backend.start(u"Создай простое приложение-калькулятор."_s, false, defaultTaskTokens, u""_s, u"[]"_s);
    });
    QTimer::singleShot(timeLimit, Qt::PreciseTimer, this, [] { leave(TimedOut); });
}

void SelfTestUi::capture()
{
    const QJsonObject state = backend.runner().snapshot();
    const QString phase = state["phase"_L1].toString();
    const QString decision = state["decision"_L1]["id"_L1].toString();
    if (phase == Phase::planReview && !captured.contains(u"network"_s)) {
        captured.insert(u"network"_s);
        QTimer::singleShot(networkDelay, this, [this] { grab(u"network-active"_s); });
    }
    if (phase == Phase::clarification && !decision.isEmpty() && !captured.contains(decision)) {
        captured.insert(decision);
        QTimer::singleShot(questionDelay, this, [this, decision] { captureQuestion(decision); });
    }
}

void SelfTestUi::captureQuestion(const QString &decision)
{
    const QJsonObject open = backend.runner().snapshot()["decision"_L1].toObject();
    if (open["id"_L1].toString() != decision)
        return;
    grab(u"question"_s);
    backend.clarify(open["options"_L1][0].toString());
}

void SelfTestUi::finish(const QString &status)
{
    QQuickWindow *window = firstWindow(engine);
    if (status != Phase::completed || !window)
        return leave(status != Phase::completed ? NotCompleted : NoWindow);

    const QJsonArray runs = backend.selected()["runs"_L1].toArray();
    if (!runs.isEmpty())
        window->setProperty("selectedRun", runs.last().toObject().toVariantMap());
    writeState();
    pages = {u"Чат"_s,          u"Ход работы"_s,    u"Файлы"_s,
             u"История"_s,      u"Модель и API"_s,  u"Настройки агентов"_s,
             u"Отчёт агента"_s, u"Выбор проекта"_s, u"Переименование"_s};
    names = {u"chat"_s,           u"cycle"_s,        u"files"_s,        u"history"_s,      u"settings"_s,
             u"agent-settings"_s, u"agent-report"_s, u"project-menu"_s, u"rename-inline"_s};
    const QVariantList files = backend.files();
    if (!files.isEmpty())
        window->setProperty("selectedFile", files.first());
    if (auto *choice = window->findChild<QObject *>(u"providerChoice"_s))
        choice->setProperty("currentIndex", 1);
    window->setProperty("page", pages.first());
    pageTimer.start();
}

void SelfTestUi::writeState() const
{
    QFile file(folder + u"/task-state.json"_s);
    if (file.open(QIODevice::WriteOnly))
        file.write(QJsonDocument(backend.selected()).toJson());
}

void SelfTestUi::showNextPage()
{
    pages.removeFirst();
    if (!grab(names.takeFirst())) {
        pageTimer.stop();
        return leave(NotSaved);
    }
    if (!pages.isEmpty()) {
        firstWindow(engine)->setProperty("page", pages.first());
        return;
    }
    pageTimer.stop();
    rename();
}

void SelfTestUi::rename()
{
    QQuickWindow *window = firstWindow(engine);
    auto *editor = window->findChild<QObject *>(u"renameEditor"_s);
    if (!editor)
        return leave(NoEditor);
    editor->setProperty("text", newTitle());
    QMetaObject::invokeMethod(editor, "accepted");
    const QVariantList tasks = backend.tasks();
    const bool renamed = std::ranges::any_of(tasks, [](const QVariant &task) {
        return task.toMap().value(u"spec"_s).toMap().value(u"title"_s).toString() == newTitle();
    });
    if (!renamed)
        return leave(NotRenamed);
    window->close();
}

bool SelfTestUi::grab(const QString &name) const
{
    QQuickWindow *window = firstWindow(engine);
    return window && window->grabWindow().save(folder + u'/' + name + u".png"_s);
}

} // namespace vesk
