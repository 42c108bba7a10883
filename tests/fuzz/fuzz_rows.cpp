// Lists that follow one another in a model. Each character of the input is a row, '|' ends a list: a letter's lower
// case is the row's id, a digit its path, any other its kind alone.

#include "fuzz.h"
#include "rows.h"

#include <QChar>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

class Source : public QObject {
    Q_OBJECT
    Q_PROPERTY(QVariantList rows MEMBER rows NOTIFY changed)
public:
    QVariantList rows;
Q_SIGNALS:
    void changed();
};

QVariantMap rowOf(char c)
{
    const QChar letter = QLatin1Char(c);
    if (c >= '0' && c <= '9')
        return {{u"path"_s, letter}};
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'))
        return {{u"id"_s, letter.toLower()}, {u"upper"_s, letter.isUpper()}};
    return {{u"kind"_s, letter}};
}

/// What a view has in the end that hears of the model only by its signals.
class View : public QObject {
    Q_OBJECT
public:
    explicit View(const Rows &model)
    {
        connect(&model, &Rows::rowsInserted, this, [this, &model](const QModelIndex &, int first, int last) {
            for (int i = first; i <= last; ++i)
                shown.insert(i, model.at(i));
        });
        connect(&model, &Rows::rowsRemoved, this,
                [this](const QModelIndex &, int first, int last) { shown.remove(first, last - first + 1); });
        connect(&model, &Rows::dataChanged, this, [this, &model](const QModelIndex &from, const QModelIndex &to) {
            for (int i = from.row(); i <= to.row(); ++i)
                shown[i] = model.at(i);
        });
        connect(&model, &Rows::countChanged, this, [this, &model] { count = model.count(); });
    }

    QVariantList shown;
    int count = 0;
};

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Source source;
    Rows rows;
    const View view(rows);
    rows.setSource(&source);
    rows.setList(u"rows"_s);
    const QList<QByteArray> lists = bytesOf(data, size).split('|');
    for (const QByteArray &list : lists) {
        source.rows.clear();
        for (const char c : list)
            source.rows.append(rowOf(c));
        Q_EMIT source.changed();
        holds(view.shown == source.rows && view.count == source.rows.size());
    }
    return 0;
}

#include "fuzz_rows.moc"
