#include "keyboard.h"

#include "visible_items.h"

#include <QAccessible>
#include <QImage>
#include <QSet>
#include <QTest>

#include <algorithm>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr int mostStops = 200;

QAccessible::Role roleOf(QQuickItem *item)
{
    const QAccessibleInterface *told = QAccessible::queryAccessibleInterface(item);
    return told ? told->role() : QAccessible::NoRole;
}

/// What is told of it is told by another.
bool isIgnored(const QQuickItem *item)
{
    return std::ranges::any_of(item->children(), [](const QObject *part) {
        return part->inherits("QQuickAccessibleAttached") && part->property("ignored").toBool();
    });
}

bool isControl(QQuickItem *item)
{
    static const QSet<QAccessible::Role> roles{
        QAccessible::Button,   QAccessible::CheckBox, QAccessible::RadioButton, QAccessible::EditableText,
        QAccessible::ComboBox, QAccessible::PageTab,  QAccessible::MenuItem,    QAccessible::ListItem,
        QAccessible::Splitter, QAccessible::Link,     QAccessible::Slider};
    return roles.contains(roleOf(item)) && !isIgnored(item);
}

bool isPressed(const QQuickItem *item)
{
    const QObjectList &parts = item->children();
    return item->inherits("QQuickMouseArea")
        || std::ranges::any_of(parts, [](const QObject *part) { return part->inherits("QQuickTapHandler"); });
}

template <typename Test> QQuickItem *ancestor(QQuickItem *item, Test test)
{
    while (item && !test(item))
        item = item->parentItem();
    return item;
}

/// A row is reached by the arrows of its list, its text by Enter; what can't have the focus in it has a key of its own.
bool isReachedInRow(QQuickItem *item, const QList<QQuickItem *> &stops)
{
    const QQuickItem *list = ancestor(item, [](QQuickItem *at) { return at->inherits("QQuickItemView"); });
    const auto role = roleOf(item);
    const bool byList = role == QAccessible::ListItem || role == QAccessible::EditableText
        || item->property("focusPolicy") == QVariant(int(Qt::NoFocus));
    return list && byList
        && std::ranges::any_of(stops, [list](QQuickItem *stop) { return stop == list || list->isAncestorOf(stop); });
}

QQuickItem *topmost(QQuickWindow *window)
{
    const QList<QQuickItem *> layers = window->contentItem()->childItems();
    for (const QQuickItem *layer : layers) {
        if (!layer->inherits("QQuickOverlay"))
            continue;
        const QList<QQuickItem *> over = layer->childItems();
        for (auto at = over.crbegin(); at != over.crend(); ++at) {
            const QObject *popup = (*at)->parent();
            if ((*at)->isVisible() && popup && popup->inherits("QQuickPopup") && !popup->inherits("QQuickToolTip"))
                return *at;
        }
    }
    return window->contentItem();
}

/// Whether what cuts it off leaves the item's middle in view or, of a large one, some lines.
bool isInView(QQuickItem *item)
{
    QRectF shown = item->mapRectToScene(item->boundingRect());
    const QPointF middle = shown.center();
    for (const QQuickItem *at = item->parentItem(); at; at = at->parentItem()) {
        if (at->clip() || !at->parentItem())
            shown &= at->mapRectToScene(QRectF(0, 0, at->width(), at->height()));
    }
    return shown.contains(middle) || shown.height() > 40;
}

QStringList announced;

} // namespace

Keyboard::Keyboard()
{
    QAccessible::installUpdateHandler([](QAccessibleEvent *event) {
        if (event->type() == QAccessible::Announcement)
            announced.append(static_cast<QAccessibleAnnouncementEvent *>(event)->message());
    });
}

QStringList Keyboard::told()
{
    return std::exchange(announced, {});
}

QStringList Keyboard::faults(QQuickWindow *shown)
{
    window = shown;
    found.clear();
    ground = topmost(window);
    QQuickItem *first = window->activeFocusItem();
    if (!first || (!isControl(first) && roleOf(first) != QAccessible::PopupMenu))
        fault(first, u"has the focus at first"_s);
    QTest::keyClick(window, Qt::Key_Tab);
    looking = true;
    const QList<QQuickItem *> stops = round(Qt::Key_Tab);
    looking = false;
    if (stops.isEmpty())
        return found;
    QList<QQuickItem *> back(stops.crbegin() + 1, stops.crend());
    back.append(stops.last());
    if (round(Qt::Key_Tab) != stops)
        found.append(u"the second round differs"_s);
    for (int i = 0; i < 2; ++i) {
        if (round(Qt::Key_Backtab) != back)
            found.append(u"the way back differs"_s);
    }
    const QList<QQuickItem *> items = visibleItems(ground);
    for (QQuickItem *item : items)
        checkItem(item, stops);
    found.removeDuplicates();
    return found;
}

QList<QQuickItem *> Keyboard::round(Qt::Key key)
{
    QList<QQuickItem *> stops;
    const QQuickItem *start = window->activeFocusItem();
    QQuickItem *here = window->activeFocusItem();
    QImage with = looking ? window->grabWindow() : QImage();
    do {
        const QRect area = here->mapRectToScene(here->boundingRect()).toRect().adjusted(-14, -14, 14, 14);
        QTest::keyClick(window, key, key == Qt::Key_Backtab ? Qt::ShiftModifier : Qt::NoModifier);
        QQuickItem *next = window->activeFocusItem();
        const QImage without = looking ? window->grabWindow() : QImage();
        if (looking && here != next)
            checkSeen(here, area, with, without);
        with = without;
        here = next;
        if (!here)
            break;
        checkStop(here);
        stops.append(here);
    } while (here != start && stops.size() < mostStops);
    return stops;
}

void Keyboard::checkStop(QQuickItem *item)
{
    const QAccessibleInterface *told = QAccessible::queryAccessibleInterface(item);
    if (!told || told->text(QAccessible::Name).isEmpty())
        fault(item, u"has no name"_s);
    if (!item->isVisible() || !item->isEnabled() || !isInView(item))
        fault(item, u"has the focus out of sight"_s);
    if (!ground->isAncestorOf(item))
        fault(item, u"has the focus below"_s);
}

void Keyboard::checkSeen(QQuickItem *item, QRect area, const QImage &with, const QImage &without)
{
    if (with.copy(area) == without.copy(area))
        fault(item, u"does not show that it has the focus"_s);
}

void Keyboard::checkItem(QQuickItem *item, const QList<QQuickItem *> &stops)
{
    if (!item->isEnabled())
        return;
    const bool inList = ancestor(item, [](const QQuickItem *at) { return at->inherits("QQuickItemView"); });
    if (isPressed(item) && !inList && !ancestor(item, isControl) && !item->objectName().startsWith("dialog"_L1))
        fault(item, u"is for the mouse alone"_s);
    if (!isControl(item))
        return;
    if (QAccessible::queryAccessibleInterface(item)->text(QAccessible::Name).isEmpty())
        fault(item, u"has no name"_s);
    if (!stops.contains(item) && !isReachedInRow(item, stops) && !(inList && !isInView(item)))
        fault(item, u"is not reached"_s);
}

void Keyboard::fault(const QQuickItem *item, const QString &text)
{
    const QString kind = item ? QString::fromLatin1(item->metaObject()->className()).section(u'_', 0, 0) : u"nothing"_s;
    const QString name
        = item ? item->objectName() + u" «"_s + item->property("text").toString().left(40) + u'»' : QString();
    found.append(kind + u' ' + name + u' ' + text);
}
