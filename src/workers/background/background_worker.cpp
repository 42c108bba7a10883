// The background's worker, as a library of its own: linked into the executable, the script engine would cost every run
// without a window.

#include "background_script.h"
#include "confinement.h"
#include "entry_points.h"
#include "start_memory.h"

#include <QJsonDocument>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

using namespace vesk;

namespace {

/// A frame may take 120 ms, the first one 3 s, and whoever asks for them sees to that. This is for a script that has
/// got rid of everybody who could.
constexpr int frameSeconds = 5;

bool write(const QJsonObject &reply)
{
    const QByteArray line = QJsonDocument(reply).toJson(QJsonDocument::Compact) + '\n';
    return std::fwrite(line.constData(), 1, size_t(line.size()), stdout) == size_t(line.size())
        && std::fflush(stdout) == 0;
}

} // namespace

extern "C" Q_DECL_EXPORT void veskBackgroundWorker()
{
    // Machine code made while running needs memory that is writable and executable.
    qputenv("QV4_FORCE_INTERPRETER", "1");
    // With a limit to its time the collector wants an event loop to go on in; without one it never ends its round.
    qputenv("QV4_GC_TIMELIMIT", "0");
    BackgroundScript script;
    releaseStartMemory();
    confineToComputing();
    std::string line;
    while (std::getline(std::cin, line)) {
        limitProcessorTime(frameSeconds);
        const QJsonObject request = QJsonDocument::fromJson(QByteArray::fromStdString(line)).object();
        if (!write(script.answer(request)))
            break;
    }
    // What would be tidied up at an ordinary end needs calls that are refused now.
    std::_Exit(0);
}
