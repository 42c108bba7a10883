// A file to look at.

#include "code_view.h"

#include "diff.h"
#include "helpers.h"
#include "marked_line.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMetaObject>

#include <algorithm>
#include <functional>
#include <numeric>
#include <utility>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

/// In places of a font of fixed width: letters of three bytes and more may take two, what can't be seen is a number.
qsizetype widthOf(QByteArrayView line)
{
    const auto places = [](char byte) { return (byte & 0xC0) == 0x80 ? 0 : (byte & 0xE0) == 0xE0 ? 2 : 1; };
    const QString text = decodedLine(line.first(std::min(line.size(), 4 * longestShownLine)));
    return std::transform_reduce(line.begin(), line.end(), visibleText(text).size() - text.size(), std::plus(), places);
}

} // namespace

CodeView::CodeView(QObject *parent)
    : QAbstractListModel(parent)
    , stale(std::make_shared<std::atomic_bool>(false))
{
    pool.setMaxThreadCount(1);
}

CodeView::~CodeView()
{
    *stale = true;
    pool.waitForDone();
}

bool CodeView::isProse() const
{
    static const QStringList suffixes{u"md"_s, u"markdown"_s, u"rst"_s, u"txt"_s, u"text"_s};
    const QString file = name.section(u'/', -1);
    if (file == "CMakeLists.txt"_L1)
        return false;
    return file.contains(u'.') ? suffixes.contains(file.section(u'.', -1).toLower())
                               : file.startsWith("README"_L1) || file.startsWith("LICENSE"_L1);
}

void CodeView::show(const QString &path, const QByteArray &text, const QString &note)
{
    if (path == name && text == bytes && note == said)
        return;
    beginResetModel();
    name = path;
    said = note;
    bytes = text;
    lines = linesOf(bytes);
    colours.clear();
    widest = 0;
    for (const QByteArrayView line : std::as_const(lines))
        widest = int(std::clamp<qsizetype>(line.size() > widest ? widthOf(line) : 0, widest, longestShownLine));
    endResetModel();
    colour();
    Q_EMIT changed();
}

void CodeView::colour()
{
    *stale = true;
    stale = std::make_shared<std::atomic_bool>(false);
    pool.start([this, path = name, text = bytes, ground = dark, stop = stale] {
        const LineColours found = coloursOf(path, linesOf(text), ground, *stop);
        QMetaObject::invokeMethod(
            this,
            [this, found, stop] {
                if (*stop || found.isEmpty())
                    return;
                colours = found;
                Q_EMIT dataChanged(index(0), index(rowCount() - 1), {TextRole});
            },
            Qt::QueuedConnection);
    });
}

void CodeView::setDark(bool ground)
{
    if (ground == dark)
        return;
    dark = ground;
    colour();
    Q_EMIT changed();
}

QString CodeView::text(int first, int last) const
{
    QString all;
    for (int at = std::max(0, first); at <= last && at < lines.size(); ++at)
        all += QString::fromUtf8(lines[at]);
    return all;
}

void CodeView::copy(int first, int last) const
{
    QGuiApplication::clipboard()->setText(text(first, last));
}

int CodeView::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(lines.size());
}

QVariant CodeView::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= lines.size())
        return {};
    if (role == NumberRole)
        return index.row() + 1;
    if (role != TextRole)
        return {};
    return markedLine(decodedLine(lines[index.row()]), {}, colours.value(index.row()));
}

QHash<int, QByteArray> CodeView::roleNames() const
{
    return {{NumberRole, "number"}, {TextRole, "line"}};
}

} // namespace vesk
