// The living background tried out without a window.

#include "self_test_background.h"

#include "background_renderer.h"

#include <QCoreApplication>
#include <QTimer>

#include <array>
#include <chrono>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace vesk {

namespace {

constexpr auto timeLimit = 12s;
constexpr int stepsTimedOut = 5;

struct Step {
    QString script;
    bool fails = false; ///< What is awaited is an error and not a shape.
};

const std::array<Step, 3> &steps()
{
    static const std::array<Step, 3> list{{
        {u"return [{type:'circle',x:20,y:20,r:10}];"_s, false},
        {u"while(true){}"_s, true},
        {u"return [{type:'rect',w:20,h:20}];"_s, false},
    }};
    return list;
}

} // namespace

int runSelfTestBackground()
{
    BackgroundRenderer renderer;
    size_t at = 0;
    const auto renderLater
        = [&] { QTimer::singleShot(0, &renderer, [&] { renderer.render(steps().at(at).script, 0, 400, 300); }); };
    QObject::connect(&renderer, &BackgroundRenderer::changed, &renderer, [&] {
        if (at == steps().size() || (steps().at(at).fails ? renderer.error().isEmpty() : renderer.frame().isEmpty()))
            return;
        if (++at < steps().size())
            return renderLater();
        qInfo("Background render, runaway timeout and recovery passed");
        QCoreApplication::exit(0);
    });
    renderLater();
    QTimer::singleShot(timeLimit, Qt::PreciseTimer, &renderer, [] {
        qWarning("Background self-test timed out");
        QCoreApplication::exit(stepsTimedOut);
    });
    return QCoreApplication::exec();
}

} // namespace vesk
