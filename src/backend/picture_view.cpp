// Nothing of the user's media is decoded in this process.

#include "picture_view.h"

#include "helpers.h"
#include "process_containment.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QProcess>

#include <memory>
#include <utility>

using namespace Qt::StringLiterals;

namespace vesk {

PictureView::~PictureView()
{
    stop();
}

bool PictureView::isPicture(const QString &path)
{
    static const QStringList suffixes{u"png"_s, u"jpg"_s, u"jpeg"_s, u"webp"_s, u"bmp"_s, u"gif"_s};
    return suffixes.contains(path.section(u'.', -1).toLower());
}

void PictureView::show(const QString &root, const QString &path)
{
    stop();
    address.clear();
    if (!path.isEmpty()) {
        worker = new QProcess(this);
        const auto containment = std::make_shared<ProcessContainment>();
        const QJsonObject job{{u"operation"_s, u"preview"_s}, {u"root"_s, root}, {u"input"_s, path}};
        const QString problem
            = containment->prepare(*worker, QCoreApplication::applicationFilePath(), {u"--media-job"_s, json(job)});
        connect(worker, &QProcess::finished, this,
                [this](int code, QProcess::ExitStatus status) { take(status == QProcess::NormalExit && code == 0); });
        worker->setStandardInputFile(QProcess::nullDevice());
        worker->setStandardErrorFile(QProcess::nullDevice());
        if (problem.isEmpty())
            worker->start();
    }
    Q_EMIT changed();
}

void PictureView::take(bool success)
{
    const QJsonObject result = QJsonDocument::fromJson(worker->readAllStandardOutput()).object();
    std::exchange(worker, nullptr)->deleteLater();
    if (success)
        address = u"data:image/jpeg;base64,"_s + result["jpeg"_L1].toString();
    Q_EMIT changed();
}

void PictureView::stop()
{
    QProcess *running = std::exchange(worker, nullptr);
    if (!running)
        return;
    running->disconnect(this);
    // Destroying it sooner would wait for its end here.
    running->setParent(nullptr);
    connect(running, &QProcess::finished, running, &QObject::deleteLater);
    if (running->state() == QProcess::NotRunning)
        running->deleteLater();
    else
        ProcessContainment::end(*running);
}

} // namespace vesk
