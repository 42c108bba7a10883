#pragma once

#include <QByteArray>
#include <QString>

#include <memory>

namespace vesk {

/// Where files are copied to, outside of the project.
class FileSink {
public:
    virtual ~FileSink() = default;
    virtual void add(const QString &path, const QByteArray &bytes, int mode) = 0;
    virtual void finish() = 0;
};

/// A copy of a project's files in a new folder, or in a zip file if the name ends so. It is there whole once finish()
/// was called, and not at all if this object goes before. Every failure throws std::runtime_error with a text for
/// people. May be used on any thread, on one at a time.
class FileExport {
public:
    /// The target is absolute, doesn't exist and lies outside of the project. Nothing is made yet.
    FileExport(const QString &projectRoot, const QString &target);

    /// A relative path as the workspace takes it. Of the mode only whether it can be executed goes into a folder.
    void add(const QString &path, const QByteArray &bytes, int mode);
    void finish();

private:
    FileSink &sink();

    QString target;
    std::unique_ptr<FileSink> opened;
};

} // namespace vesk
