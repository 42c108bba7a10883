// Size and place of the window, kept from one start to the next.

#include "window_place.h"

#include <QGuiApplication>
#include <QQuickWindow>
#include <QScreen>
#include <QSettings>

#include <algorithm>
#include <chrono>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace vesk {

namespace {

/// So much of a window must lie on a screen that it can be taken by its title and moved.
constexpr int graspable = 80;
/// No screen is larger than this.
constexpr int mostPixels = 16384;

/// What the scene asks for by itself.
constexpr QSize usualSize(1440, 900);
constexpr QSize leastSize(1000, 700);
/// What a desktop puts round a window; known only once it is there.
constexpr QSize frame(2, 40);

QScreen *screenOf(const QRect &place)
{
    const QList<QScreen *> screens = QGuiApplication::screens();
    for (QScreen *screen : screens) {
        if (screen->availableGeometry().contains(place.center()))
            return screen;
    }
    return QGuiApplication::primaryScreen();
}

/// The size with its frame inside of the screen, and no smaller than the least when there is room for that.
QSize fitting(const QSize &size, const QRect &available)
{
    return size.expandedTo(leastSize).boundedTo(available.size() - frame);
}

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
    // A window that is being maximised may have its size before it is known to be so.
    settled.setSingleShot(true);
    settled.setInterval(300ms);
    connect(&settled, &QTimer::timeout, this, &WindowPlace::note);
}

WindowPlace::~WindowPlace()
{
    if (settled.isActive())
        note();
    if (!normal.isValid())
        return;
    QSettings settings(file, QSettings::IniFormat);
    if (settings.value("place").toRect() == normal && settings.value("maximized").toBool() == maximized)
        return;
    settings.setValue("place", normal);
    settings.setValue("maximized", maximized);
}

QVariantMap WindowPlace::initialProperties() const
{
    const QSettings settings(file, QSettings::IniFormat);
    const QRect place = settings.value("place").toRect();
    const bool isKnown = place.isValid() && place.width() <= mostPixels && place.height() <= mostPixels;
    const bool isSeen = isKnown && canBeSeen(place);
    const QScreen *screen = isSeen ? screenOf(place) : QGuiApplication::primaryScreen();
    if (!screen)
        return {};
    const QRect available = screen->availableGeometry();
    const QSize size = fitting(isKnown ? place.size() : usualSize, available);
    QVariantMap properties;
    if (isKnown || size != usualSize) {
        properties[u"width"_s] = size.width();
        properties[u"height"_s] = size.height();
    }
    if (const QSize least = leastSize.boundedTo(size); least != leastSize) {
        properties[u"minimumWidth"_s] = least.width();
        properties[u"minimumHeight"_s] = least.height();
    }
    if (isSeen) {
        const QRect room(available.topLeft(), available.size() - size);
        properties[u"x"_s] = std::clamp(place.x(), room.left(), std::max(room.left(), room.left() + room.width()));
        properties[u"y"_s] = std::clamp(place.y(), room.top(), std::max(room.top(), room.top() + room.height()));
    }
    if (settings.value("maximized").toBool())
        properties[u"visibility"_s] = QWindow::Maximized;
    return properties;
}

void WindowPlace::follow(QQuickWindow *followed)
{
    if (!followed)
        return;
    window = followed;
    if (window->width() < window->minimumWidth() || window->height() < window->minimumHeight())
        window->resize(window->size().expandedTo(window->minimumSize()));
    const auto later = [this] { settled.start(); };
    connect(window, &QWindow::xChanged, this, later);
    connect(window, &QWindow::yChanged, this, later);
    connect(window, &QWindow::widthChanged, this, later);
    connect(window, &QWindow::heightChanged, this, later);
    connect(window, &QWindow::visibilityChanged, this, later);
    connect(window, &QQuickWindow::closing, this, &WindowPlace::note);
    note();
}

void WindowPlace::note()
{
    if (!window || window->visibility() == QWindow::Hidden || window->visibility() == QWindow::Minimized)
        return;
    maximized = window->visibility() == QWindow::Maximized;
    if (window->visibility() == QWindow::Windowed)
        normal = window->geometry();
}

} // namespace vesk
