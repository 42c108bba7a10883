// An application of its own for tests: runs one program contained, as long as it is not killed itself.
//   contained-app GUARD PROGRAM [ARGUMENT...]    (an empty GUARD: the one beside it)

#include "process_containment.h"

#include <QCoreApplication>
#include <QProcess>

int main(int count, char **arguments)
{
    QCoreApplication app(count, arguments);
    const QStringList given = app.arguments();
    vesk::ProcessContainment::useGuard(given.value(1));
    QProcess process;
    const auto containment = std::make_shared<vesk::ProcessContainment>();
    if (!containment->prepare(process, given.value(2), given.mid(3)).isEmpty())
        return 2;
    QObject::connect(&process, &QProcess::finished, &app, &QCoreApplication::quit);
    process.start();
    return QCoreApplication::exec();
}
