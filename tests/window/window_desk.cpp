#include "window_desk.h"

#include "unfinished.h"
#include "visible_items.h"

#include <QDir>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

constexpr int patienceMs = 30000;

QPointF middleOf(const QQuickItem *item)
{
    return item->mapToScene(QPointF(item->width() / 2, item->height() / 2));
}

} // namespace

WindowDesk::WindowDesk()
{
    QDir().mkpath(data());
    // Projects that are made from the window go to the user's own folder.
    qputenv("HOME", folder.path().toUtf8());
    open();
    // What slides is not to be clicked on the way.
    backend->setPreference(u"animations"_s, false);
}

void WindowDesk::open()
{
    close();
    backend = std::make_unique<vesk::Backend>(data());
    engine = std::make_unique<QQmlApplicationEngine>();
    engine->setInitialProperties({{u"backend"_s, QVariant::fromValue(backend.get())}});
    engine->loadFromModule("Vesk", "Main");
    window = qobject_cast<QQuickWindow *>(engine->rootObjects().value(0));
    Q_ASSERT_X(window, "WindowDesk", "the window could not be made");
    window->requestActivate();
    const bool active = QTest::qWaitForWindowActive(window);
    Q_ASSERT_X(active, "WindowDesk", "the window does not become active");
}

void WindowDesk::close()
{
    if (backend)
        backend->stop();
    if (engine)
        vesk::finishLoaders(*engine);
    engine.reset();
    backend.reset();
}

QList<QQuickItem *> WindowDesk::visibleItems() const
{
    return ::visibleItems(window->contentItem());
}

QQuickItem *WindowDesk::item(const QString &name, QQuickItem *within) const
{
    const QList<QQuickItem *> items = ::visibleItems(within ? within : window->contentItem());
    for (QQuickItem *item : items) {
        if (item->objectName() == name)
            return item;
    }
    return nullptr;
}

QString WindowDesk::text(const QString &name, const char *property) const
{
    const QQuickItem *shown = item(name);
    return shown ? shown->property(property).toString() : u"(none)"_s;
}

bool WindowDesk::isOpen(const QString &popup) const
{
    const QObject *found = window->findChild<QObject *>(popup);
    return found && found->property("opened").toBool();
}

bool WindowDesk::click(const QString &name, QQuickItem *within)
{
    return QTest::qWaitFor([&] { return item(name, within) && item(name, within)->isEnabled(); }, patienceMs)
        && click(item(name, within));
}

bool WindowDesk::click(QQuickItem *item)
{
    if (!item)
        return false;
    // What has just been shown is given its place at the next frame.
    QPointF place;
    while (place != middleOf(item)) {
        place = middleOf(item);
        QSignalSpy frames(window, &QQuickWindow::frameSwapped);
        window->update();
        if (!frames.wait(patienceMs))
            return false;
    }
    QTest::mouseClick(window, Qt::LeftButton, {}, place.toPoint());
    return true;
}

void WindowDesk::press(Qt::Key key, Qt::KeyboardModifiers modifiers)
{
    QTest::keyClick(window, key, modifiers);
}

void WindowDesk::type(const QString &text)
{
    for (const QChar letter : text)
        QTest::sendKeyEvent(QTest::Click, window, Qt::Key_unknown, QString(letter), Qt::NoModifier);
}

bool WindowDesk::tabTo(const QString &name)
{
    for (int i = 0; i < 100; ++i) {
        if (item(name) && item(name)->hasActiveFocus())
            return true;
        press(Qt::Key_Tab);
    }
    return false;
}

void WindowDesk::drag(QPoint from, QPoint to)
{
    QTest::mousePress(window, Qt::LeftButton, {}, from);
    QTest::mouseMove(window, (from + to) / 2);
    QTest::mouseMove(window, to);
    QTest::mouseRelease(window, Qt::LeftButton, {}, to);
}

bool WindowDesk::waitForPhase(const QString &wanted) const
{
    return QTest::qWaitFor([&] { return phase() == wanted; }, patienceMs);
}
