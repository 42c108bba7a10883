// Colours by the library KSyntaxHighlighting.

#include "code_colours.h"

#include "marked_line.h"

#include <QMutex>
#include <QMutexLocker>

#include <KSyntaxHighlighting/AbstractHighlighter>
#include <KSyntaxHighlighting/Definition>
#include <KSyntaxHighlighting/Format>
#include <KSyntaxHighlighting/Repository>
#include <KSyntaxHighlighting/State>
#include <KSyntaxHighlighting/Theme>

namespace vesk {

namespace {

using namespace KSyntaxHighlighting;

/// Never deleted: a thread may still be at work when the program ends.
Repository &repository()
{
    static auto *const all = new Repository;
    return *all;
}

class Painter : public AbstractHighlighter {
public:
    QList<ColouredPart> paint(const QString &line)
    {
        parts.clear();
        state = highlightLine(line, state);
        return parts;
    }

private:
    void applyFormat(int offset, int length, const Format &format) override
    {
        if (length > 0 && !format.isDefaultTextStyle(theme()) && format.hasTextColor(theme()))
            parts.append({offset, length, format.textColor(theme()).rgb()});
    }

    State state;
    QList<ColouredPart> parts;
};

} // namespace

LineColours coloursOf(const QString &path, const QList<QByteArrayView> &lines, bool dark, const std::atomic_bool &stop)
{
    static QMutex onlyOne;
    const QMutexLocker lock(&onlyOne);
    const Definition definition = repository().definitionForFileName(path);
    if (!definition.isValid())
        return {};
    Painter painter;
    painter.setDefinition(definition);
    painter.setTheme(repository().defaultTheme(dark ? Repository::DarkTheme : Repository::LightTheme));
    LineColours colours;
    colours.reserve(lines.size());
    for (const QByteArrayView line : lines) {
        if (stop)
            return {};
        colours.append(painter.paint(decodedLine(line).left(longestShownLine)));
    }
    return colours;
}

} // namespace vesk
