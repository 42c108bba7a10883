// Scaling and moving the vertices of a Wavefront OBJ file, as a filter of its lines.

#include "helpers.h"
#include "media_parts.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QSaveFile>

#include <array>
#include <cmath>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qint64 maxObjBytes = 67108864;
constexpr qint64 maxLineBytes = 1048576;
constexpr double maxScale = 100000;

struct Move {
    double scale = 1;
    std::array<double, 3> offset{};
};

Move moveOf(const QJsonObject &job)
{
    Move move;
    move.scale = job["scale"_L1].toDouble(1);
    require(std::isfinite(move.scale) && move.scale > 0 && move.scale <= maxScale, u"Неверный масштаб"_s);
    const QJsonArray translate = job["translate"_L1].toArray();
    for (qsizetype axis = 0; translate.size() == 3 && axis < 3; ++axis)
        move.offset.at(size_t(axis)) = translate[axis].toDouble();
    return move;
}

QByteArray movedVertex(const QByteArray &line, const Move &move)
{
    const QList<QByteArray> parts = line.simplified().split(' ');
    require(parts.size() >= 4, u"Повреждённая вершина OBJ"_s);
    QByteArray moved("v");
    for (qsizetype i = 1; i < parts.size(); ++i) {
        moved += ' ';
        if (i > 3) {
            moved += parts[i]; // a weight or colours
            continue;
        }
        bool number = false;
        const double value = parts[i].toDouble(&number) * move.scale + move.offset.at(size_t(i - 1));
        require(number && std::isfinite(value), u"Неверная координата OBJ"_s); // it may have been moved out of reach
        moved += QByteArray::number(value, 'g', 12);
    }
    return moved + '\n';
}

} // namespace

void moveVertices(const QJsonObject &job, QIODevice &from, QIODevice &to)
{
    const Move move = moveOf(job);
    bool atLineStart = true;
    while (!from.atEnd()) {
        QByteArray line = from.readLine(maxLineBytes);
        require(!line.isEmpty(), u"OBJ не читается или превышает 64 МиБ"_s);
        // The rest of an overlong line is no line of its own.
        const bool vertex = atLineStart && line.startsWith("v ");
        atLineStart = line.endsWith('\n');
        if (vertex)
            line = movedVertex(line, move);
        require(to.write(line) == line.size(), u"Ошибка записи OBJ"_s);
    }
}

void transformObj(const QJsonObject &job, const QString &input, const QString &output)
{
    require(QFileInfo(input).suffix().toLower() == "obj"_L1, u"Преобразование геометрии поддерживает OBJ"_s);
    QFile from(input);
    require(from.open(QIODevice::ReadOnly) && from.size() <= maxObjBytes, u"OBJ не читается или превышает 64 МиБ"_s);
    QSaveFile to(output);
    require(to.open(QIODevice::WriteOnly), u"Ошибка записи OBJ"_s);
    moveVertices(job, from, to);
    require(to.commit(), u"Ошибка сохранения OBJ"_s);
}

} // namespace vesk
