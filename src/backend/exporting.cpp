// A copy of the project's files is made while the window is in use.

#include "exporting.h"

#include "helpers.h"
#include "slice.h"

#include <QMetaObject>

#include <exception>
#include <utility>
#include <vector>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr qsizetype exportBatchBytes = 2 * 1024 * 1024;
constexpr int usualMode = 0644;

struct Batch {
    struct File {
        QString path;
        QByteArray bytes;
        int mode;
    };
    std::vector<File> files;
    bool isLast = false;
};

/// Gives what went wrong, empty for nothing.
QString write(FileExport &copy, const Batch &batch)
{
    try {
        for (const Batch::File &file : batch.files)
            copy.add(file.path, file.bytes, file.mode);
        if (batch.isLast)
            copy.finish();
        return {};
    } catch (const std::exception &fault) {
        return textOf(fault);
    }
}

} // namespace

Exporting::Exporting(const Workspace &workspace)
    : workspace(workspace)
{
    pool.setMaxThreadCount(1);
}

Exporting::~Exporting()
{
    pool.waitForDone();
}

void Exporting::begin(const QJsonArray &all, const QString &place)
{
    require(!copy, u"Файлы уже сохраняются: дождитесь конца."_s);
    copy = std::make_shared<FileExport>(workspace.root(), place);
    records = all;
    next = 0;
    target = place;
    goOn();
}

void Exporting::goOn()
{
    Batch batch;
    qsizetype bytes = 0;
    const Slice slice;
    try {
        for (; next < records.size() && bytes < exportBatchBytes && !slice.isOver(); ++next) {
            const QJsonObject record = std::as_const(records)[next].toObject();
            if (auto content = workspace.bytesOf(record)) {
                const QString path = record["path"_L1].toString();
                const int mode = record["mode"_L1].toInt(int(workspace.mode(path).value_or(usualMode)));
                bytes += content->size();
                batch.files.push_back({path, std::move(*content), mode});
            }
        }
    } catch (const std::exception &fault) {
        return end(textOf(fault));
    }
    batch.isLast = next >= records.size();
    pool.start([this, batch = std::move(batch), to = copy] {
        const QString fault = write(*to, batch);
        QMetaObject::invokeMethod(
            this,
            [this, fault, isLast = batch.isLast] {
                if (!fault.isEmpty() || isLast)
                    end(fault.isEmpty() ? u"Файлы проекта сохранены: "_s + target : fault);
                else
                    goOn();
            },
            Qt::QueuedConnection);
    });
    Q_EMIT changed();
}

void Exporting::end(const QString &text)
{
    pool.start([ended = std::move(copy)] { }); // a copy that has failed takes away what it has written
    records = {};
    Q_EMIT concluded(text);
}

QString Exporting::progress() const
{
    return copy ? u"Сохраняю: %1 из %2"_s.arg(next).arg(records.size()) : QString();
}

} // namespace vesk
