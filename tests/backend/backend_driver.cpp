// Uses a backend as a busy user would, in an order that the seed decides, and prints each step that is done:
//
//   backend_driver DATA_FOLDER PROJECTS_FOLDER SEED
//
// With an odd seed a model behind a server does the work at once; with an even one the demonstration takes its time.

#include "backend.h"
#include "credential_store.h"
#include "model_server.h"
#include "roles.h"
#include "store.h"

#include <QCoreApplication>
#include <QRandomGenerator>
#include <QTimer>

#include <cstdio>

using namespace Qt::StringLiterals;
using namespace vesk;

namespace {

/// The connection that the backend finds at its start.
void connectTo(const QString &data, const QString &url)
{
    Store(data + u"/vesk.sqlite"_s)
        .put(u"settings"_s, u"provider"_s, {},
             {{u"mock"_s, url.isEmpty()}, {u"base_url"_s, url}, {u"model"_s, u"any"_s}, {u"parallel"_s, 8}});
}

class Driver {
public:
    Driver(const QStringList &arguments)
        : random(arguments.value(3).toUInt())
        , folder(arguments.value(2))
        , seed(arguments.value(3))
        , backend(arguments.value(1))
    {
        QObject::connect(&timer, &QTimer::timeout, &timer, [this] { step(); });
        timer.start(random.bounded(1, 9));
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
    QVariantMap oneOf(const QVariantList &list)
    {
        return list.isEmpty() ? QVariantMap() : list[random.bounded(list.size())].toMap();
    }
    QString someTask() { return oneOf(backend.tasks())[u"id"_s].toString(); }

    void step()
    {
        if (backend.uiState()[u"phase"_s] == u"CLARIFICATION"_s && random.bounded(4) == 0)
            return backend.clarify(u"Да"_s);
        switch (backend.root().isEmpty() ? 0 : random.bounded(17)) {
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
            const QString task = someTask();
            const QString title = fresh(u"Имя"_s);
            backend.renameTask(task, title);
            return say(u"renamed"_s, task + u' ' + title);
        }
        case 7: {
            const QString task = someTask();
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
        case 11: {
            const QVariantMap waiting = oneOf(backend.property("queue").toList());
            if (waiting.isEmpty() || random.bounded(3) != 0)
                return;
            // Said before: from here on it may be gone.
            done(u"cancelled"_s, waiting[u"request"_s].toString());
            return backend.cancelQueued(waiting[u"id"_s].toString());
        }
        case 12:
            return backend.selectProject(oneOf(backend.projects())[u"id"_s].toString());
        case 13:
            return backend.selectTask(someTask());
        case 14:
            return backend.newConversation();
        case 15:
            return backend.setPriority(u"calculator"_s, 2);
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
    const uint seed = application.arguments().value(3).toUInt();
    const ModelServer server(ModelServer::unasking);
    connectTo(application.arguments().value(1), seed % 2 == 0 ? QString() : server.url());
    const Driver driver(application.arguments());
    return QCoreApplication::exec();
}
