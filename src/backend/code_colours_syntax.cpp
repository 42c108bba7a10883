// Colours by the library KSyntaxHighlighting.

#include "code_colours.h"

#include "marked_line.h"

#include <QColor>
#include <QDeadlineTimer>
#include <QMutex>

#include <KSyntaxHighlighting/AbstractHighlighter>
#include <KSyntaxHighlighting/Definition>
#include <KSyntaxHighlighting/Format>
#include <KSyntaxHighlighting/Repository>
#include <KSyntaxHighlighting/State>
#include <KSyntaxHighlighting/Theme>

#include <chrono>
#include <cmath>
#include <mutex>

namespace vesk {

namespace {

using namespace KSyntaxHighlighting;

constexpr auto longestColouring = std::chrono::seconds(2);

/// Never deleted: a thread may still be at work when the program ends.
Repository &repository()
{
    static auto *const all = new Repository;
    return *all;
}

/// As light goes into the eye, of 0 to 1.
double luminance(const QColor &colour)
{
    const auto part
        = [](double value) { return value <= .03928 ? value / 12.92 : std::pow((value + .055) / 1.055, 2.4); };
    return .2126 * part(colour.redF()) + .7152 * part(colour.greenF()) + .0722 * part(colour.blueF());
}

/// The colour, or as much lighter or darker as it takes to be read on every ground of code.
QColor readable(QColor colour, bool dark)
{
    constexpr double least = 4.5;
    // Of the lines that go, where code stands out least in either look.
    const double ground = luminance(dark ? QColor(0x3d, 0x26, 0x26) : QColor(0xf6, 0xdc, 0xd8)) + .05;
    const float towards = dark ? 1 : 0;
    const auto contrast
        = [&] { return dark ? (luminance(colour) + .05) / ground : ground / (luminance(colour) + .05); };
    while (contrast() < least) {
        const auto moved = [towards](float part) { return part + (towards - part) * .1F; };
        colour.setRgbF(moved(colour.redF()), moved(colour.greenF()), moved(colour.blueF()));
    }
    return colour;
}

class Painter : public AbstractHighlighter {
public:
    explicit Painter(bool dark)
        : dark(dark)
    {
    }
    QList<ColouredPart> paint(const QString &line)
    {
        parts.clear();
        state = highlightLine(line, state);
        return parts;
    }

private:
    bool dark;

    void applyFormat(int offset, int length, const Format &format) override
    {
        if (length > 0 && !format.isDefaultTextStyle(theme()) && format.hasTextColor(theme()))
            parts.append({offset, length, readable(format.textColor(theme()), dark).rgb()});
    }

    State state;
    QList<ColouredPart> parts;
};

} // namespace

LineColours coloursOf(const QString &path, const QList<QByteArrayView> &lines, bool dark, const std::atomic_bool &stop)
{
    static QMutex onlyOne;
    // Whoever closes one view does not wait for the work of another.
    while (!onlyOne.tryLock(5)) {
        if (stop)
            return {};
    }
    const std::unique_lock lock(onlyOne, std::adopt_lock);
    const Definition definition = repository().definitionForFileName(path);
    if (!definition.isValid())
        return {};
    Painter painter(dark);
    painter.setDefinition(definition);
    painter.setTheme(repository().defaultTheme(dark ? Repository::DarkTheme : Repository::LightTheme));
    LineColours colours;
    colours.reserve(lines.size());
    const QDeadlineTimer deadline(longestColouring);
    for (const QByteArrayView line : lines) {
        if (stop)
            return {};
        // Some rules take milliseconds for a line that was made for it. The rest stays plain.
        if (deadline.hasExpired())
            break;
        colours.append(painter.paint(decodedLine(line).left(longestShownLine)));
    }
    return colours;
}

} // namespace vesk
