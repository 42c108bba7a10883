// Uses a backend as a busy user would, in an order that the seed decides, and prints each step that is done:
//
//   backend_driver DATA_FOLDER PROJECTS_FOLDER SEED

#include "backend.h"
#include "credential_store.h"
#include "roles.h"

#include <QCoreApplication>
#include <QRandomGenerator>
#include <QTimer>

#include <cstdio>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

class Driver {
public:
    Driver(const QStringList &arguments)
        : random(arguments.value(3).toUInt())
        , folder(arguments.value(2))
        , seed(arguments.value(3))
        , backend(arguments.value(1))
    {
        QObject::connect(&timer, &QTimer::timeout, &timer, [this] { step(); });
        timer.start(7);
    }

private:
    void done(const QString &what, const QString &value)
    {
        std::printf("%s %s\n", qPrintable(what), qPrintable(value));
        std::fflush(stdout);
    }
    void say(const QString &what, const QString &value)
    {
        if (backend.property("message").toString().isEmpty())
            done(what, value);
    }
    QString fresh(const QString &text) { return u"%1 %2-%3"_s.arg(text, seed, QString::number(++count)); }
    QVariantMap someTask()
    {
        const QVariantList tasks = backend.tasks();
        return tasks.isEmpty() ? QVariantMap() : tasks[random.bounded(tasks.size())].toMap();
    }

    void step()
    {
        if (backend.uiState()[u"phase"_s] == u"CLARIFICATION"_s && random.bounded(4) == 0)
            return backend.clarify(u"Да"_s);
        switch (backend.root().isEmpty() ? 0 : random.bounded(12)) {
        case 0: {
            const QString name = fresh(u"Проект"_s);
            backend.createProject(name, folder);
            return say(u"project"_s, name);
        }
        case 1: {
            const QString text = fresh(u"что ты умеешь"_s);
            const auto before = backend.chat().size();
            backend.sendMessage(text);
            if (backend.chat().size() > before)
                done(u"said"_s, text);
            return;
        }
        case 2:
        case 3:
        case 4: {
            const QString text = fresh(u"Создай калькулятор"_s);
            backend.sendMessage(text);
            return say(u"asked"_s, text);
        }
        case 5:
        case 6: {
            const QString title = fresh(u"Имя"_s);
            backend.renameTask(someTask()[u"id"_s].toString(), title);
            return say(u"renamed"_s, title);
        }
        case 7: {
            const QString task = someTask()[u"id"_s].toString();
            if (random.bounded(3) == 0) {
                backend.archiveTask(task);
                say(u"archived"_s, task);
            }
            return;
        }
        case 8: {
            const QString text = fresh(u"Память"_s);
            backend.addMemory(u"User Decisions"_s, text);
            return say(u"remembered"_s, text);
        }
        case 9:
            backend.setPreference(u"sidebar_width"_s, ++count);
            return say(u"width"_s, QString::number(count));
        case 10:
            return backend.stop();
        default:
            return backend.resumeQueue();
        }
    }

    QRandomGenerator random;
    QString folder;
    QString seed;
    Backend backend;
    QTimer timer;
    int count = 0;
};

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    registerPrompts();
    CredentialStore::setDataFolder(application.arguments().value(1));
    const Driver driver(application.arguments());
    return QCoreApplication::exec();
}
