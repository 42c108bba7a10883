#pragma once

#include <QString>

#include <functional>

/// For tests of what a test's own process must not suffer: other mounts, other limits, another kernel. Linux only.
namespace sandbox {

/// Runs `work` in a child process and gives back the text it returns; "died of signal N" or "threw: ..." otherwise.
/// The child is a copy with this thread alone, so `work` makes its own objects.
QString inChild(const std::function<QString()> &work);

/// In a child: gives it mounts of its own, so that what it mounts is gone with it. False where that isn't allowed.
bool haveOwnMounts();

/// For the rest of this process the kernel behaves like an old one or a poor file system: no openat2, no files without
/// a name, no renaming that exchanges or spares the target. False where such a filter can't be set.
bool behaveLikeAnOldKernel();

/// What a test program returns that can't run here.
constexpr int skipped = 77;

/// Takes the argument "--old-kernel" from the command line and does that. False where it can't.
bool obey(int &count, char *arguments[]);

/// The main function of a test that, with that argument, is the same where the kernel and the file system can do less.
#define SANDBOXED_TEST_MAIN(TestClass)                                                                                 \
    int main(int count, char *arguments[])                                                                             \
    {                                                                                                                  \
        if (!sandbox::obey(count, arguments))                                                                          \
            return sandbox::skipped;                                                                                   \
        QCoreApplication application(count, arguments);                                                                \
        TestClass test;                                                                                                \
        return QTest::qExec(&test, count, arguments);                                                                  \
    }

/// A folder of its own in memory, where flushing to disk costs nothing; on disk where there is no such.
QString memoryTemplate();

} // namespace sandbox
