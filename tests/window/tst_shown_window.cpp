// A second start brings the window of the first to the front.

#include "shown_window.h"

#include <QQuickWindow>
#include <QTemporaryDir>
#include <QTest>

#include <atomic>
#include <thread>

using namespace vesk;
using namespace Qt::StringLiterals;

class ShownWindowTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void aMinimisedWindowComesBack()
    {
        const QTemporaryDir folder;
        QVERIFY(!ShownWindow::call(folder.path()));
        QQuickWindow window;
        const ShownWindow shown(folder.path(), &window);
        window.showMinimized();
        qputenv("XDG_ACTIVATION_TOKEN", "token-1");
        QVERIFY(called(folder.path()));
        QVERIFY(window.isVisible() && !(window.windowStates() & Qt::WindowMinimized));
        QTRY_VERIFY(window.isActive());
        window.hide();
        QVERIFY(called(folder.path()));
        QVERIFY(window.isVisible());
    }

private:
    /// From another thread, since the window is of this one.
    static bool called(const QString &folder)
    {
        std::atomic<int> outcome = -1;
        std::thread other([&] { outcome = ShownWindow::call(folder) ? 1 : 0; });
        const bool ended = QTest::qWaitFor([&] { return outcome >= 0; });
        other.join();
        return ended && outcome == 1;
    }
};

QTEST_MAIN(ShownWindowTest)
#include "tst_shown_window.moc"
