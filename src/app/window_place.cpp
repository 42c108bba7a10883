#include "window_place.h"

#include <QGuiApplication>
#include <QQuickWindow>
#include <QScreen>
#include <QSettings>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

/// So much of a window must lie on a screen that it can be taken by its title and moved.
constexpr int graspable = 80;

bool canBeSeen(const QRect &place)
{
    const QList<QScreen *> screens = QGuiApplication::screens();
    return std::ranges::any_of(screens, [&](const QScreen *screen) {
        const QRect seen = screen->availableGeometry().intersected(place);
        return seen.width() >= graspable && seen.height() >= graspable && seen.top() <= place.top() + graspable;
    });
}

} // namespace

WindowPlace::WindowPlace(const QString &dataFolder, QObject *parent)
    : QObject(parent)
    , file(dataFolder + u"/window.ini"_s)
{
}

WindowPlace::~WindowPlace()
{
    if (!normal.isValid())
        return;
    QSettings settings(file, QSettings::IniFormat);
    if (settings.value("place").toRect() == normal && settings.value("maximized").toBool() == maximized)
        return;
    settings.setValue("place", normal);
    settings.setValue("maximized", maximized);
}

void WindowPlace::follow(QQuickWindow *followed)
{
    if (!followed)
        return;
    window = followed;
    restore();
    connect(window, &QWindow::xChanged, this, &WindowPlace::note);
    connect(window, &QWindow::yChanged, this, &WindowPlace::note);
    connect(window, &QWindow::widthChanged, this, &WindowPlace::note);
    connect(window, &QWindow::heightChanged, this, &WindowPlace::note);
    connect(window, &QWindow::visibilityChanged, this, &WindowPlace::note);
    note();
}

void WindowPlace::restore()
{
    const QSettings settings(file, QSettings::IniFormat);
    const QRect place = settings.value("place").toRect();
    if (place.isValid())
        window->resize(place.size().expandedTo(window->minimumSize()));
    if (place.isValid() && canBeSeen(place))
        window->setFramePosition(place.topLeft());
    if (settings.value("maximized").toBool())
        window->showMaximized();
}

void WindowPlace::note()
{
    if (!window || window->visibility() == QWindow::Hidden || window->visibility() == QWindow::Minimized)
        return;
    maximized = window->visibility() == QWindow::Maximized;
    if (window->visibility() == QWindow::Windowed)
        normal = QRect(window->framePosition(), window->size()); // of the frame, or each start would move it by that
}

} // namespace vesk
