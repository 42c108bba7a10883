#pragma once

#include <QString>
#include <QStringList>

#include <memory>

namespace vesk {

class OpenWatch;

/// What a copy of a project is made from.
struct CopyOrder {
    QString root; ///< Of the project.
    QString copies; ///< The folder of all copies, outside of the project.
    QStringList written; ///< Paths of files that the task wrote: they are never by-products.
    QStringList named; ///< As in a trial.
};

/// A copy of a project in which the files under test are empty (test_trial.h), without what tools have made. Folders of
/// packages are filled with links to theirs. Removed, off the caller's thread, with the object.
class TestCopy {
public:
    /// May be called on any thread, and takes as long as copying 20 MB takes. Null where such a copy would tell
    /// nothing: too large, tests and tested in one file, nothing to empty; and where the disk does not let it be made.
    static std::shared_ptr<TestCopy> make(const CopyOrder &order);

    ~TestCopy();
    TestCopy(const TestCopy &) = delete;
    TestCopy &operator=(const TestCopy &) = delete;

    const QString &path() const { return folder; }
    /// True when a file of the project itself was opened since the copy was made: then whoever ran in the copy may have
    /// read that instead (a package that is installed as a link, a path in a file).
    bool wasBypassed();

private:
    explicit TestCopy(const QString &folder);

    QString folder;
    std::unique_ptr<OpenWatch> watch;
};

/// Removes what a process that was killed has left.
void removeCopies(const QString &copies);

} // namespace vesk
