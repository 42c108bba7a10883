#pragma once

#include "code_colours.h"

#include <QAbstractListModel>
#include <QByteArray>
#include <QThreadPool>

#include <atomic>

namespace vesk {

/// The text of one file, line by line, for a list that makes only the rows in sight; its colours come when they are
/// there. Main thread only.
class CodeView : public QAbstractListModel {
    Q_OBJECT
    Q_PROPERTY(QString path READ path NOTIFY changed)
    Q_PROPERTY(QString note READ note NOTIFY changed)
    Q_PROPERTY(int longest READ longest NOTIFY changed)
    Q_PROPERTY(bool prose READ isProse NOTIFY changed)
    Q_PROPERTY(bool dark READ isDark WRITE setDark NOTIFY changed)
public:
    enum Role { NumberRole = Qt::UserRole, TextRole };

    explicit CodeView(QObject *parent = nullptr);
    ~CodeView() override;

    /// Shows a text under the name of its file, or a note instead of one; the same once more changes nothing.
    void show(const QString &path, const QByteArray &text, const QString &note = {});

    QString path() const { return name; }
    QString note() const { return said; }
    /// Signs of the longest line, as far as one is shown.
    int longest() const { return widest; }
    /// Whether it is text for people, whose lines are paragraphs: they are broken to the width there is.
    bool isProse() const;
    bool isDark() const { return dark; }
    void setDark(bool ground);

    /// Lines as they are, the first and the last included.
    Q_INVOKABLE QString text(int first, int last) const;
    Q_INVOKABLE void copy(int first, int last) const;

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

Q_SIGNALS:
    void changed();

private:
    void colour();

    QThreadPool pool;
    std::shared_ptr<std::atomic_bool> stale; ///< Tells a thread at work that its colours are wanted no more.
    QString name;
    QString said;
    QByteArray bytes;
    QList<QByteArrayView> lines;
    LineColours colours;
    int widest = 0;
    bool dark = true;
};

} // namespace vesk
