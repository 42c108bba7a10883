#include "backend_desk.h"

#include "credential_store.h"
#include "roles.h"
#include "store.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QJSEngine>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTimer>

using namespace Qt::StringLiterals;
using namespace vesk;

Desk::Desk(const QString &project)
{
    registerPrompts();
    QDir().mkpath(data());
    qputenv("HOME", folder.path().toUtf8());
    qputenv("XDG_CONFIG_HOME", path(u"config"_s).toUtf8());
    qputenv("VESK_SECRETS", "file");
    CredentialStore::setDataFolder(data());
    reopen();
    QSqlDatabase other = QSqlDatabase::addDatabase(u"QSQLITE"_s, folder.path());
    other.setDatabaseName(data() + u"/vesk.sqlite"_s);
    other.open();
    if (!project.isEmpty())
        createProject(project);
}

Desk::~Desk()
{
    QSqlDatabase::removeDatabase(folder.path());
}

void Desk::reopen()
{
    script.reset();
    backend.reset();
    backend = std::make_unique<Backend>(data());
    script = std::make_unique<QJSEngine>();
    QJSEngine::setObjectOwnership(backend.get(), QJSEngine::CppOwnership);
    script->globalObject().setProperty(u"backend"_s, script->newQObject(backend.get()));
}

QVariant Desk::call(const QByteArray &operation, const QVariantList &arguments)
{
    return callWith(operation, arguments, {});
}

QVariant Desk::callWith(const QByteArray &operation, const QVariantList &arguments, const QString &expression)
{
    QJSValueList values;
    for (const QVariant &argument : arguments)
        values.append(script->toScriptValue(argument));
    if (!expression.isEmpty())
        values.append(script->evaluate(u'(' + expression + u')'));
    const QJSValue object = script->globalObject().property(u"backend"_s);
    try {
        const QJSValue result = object.property(QString::fromLatin1(operation)).callWithInstance(object, values);
        thrown = result.isError() ? result.toString() : QString();
        return result.toVariant();
    } catch (const std::exception &error) {
        thrown = QString::fromUtf8(error.what());
        return {};
    }
}

void Desk::createProject(const QString &name)
{
    call("createProject", {name, folder.path()});
}

void Desk::emptyQueue()
{
    const QVariantList waiting = read("queue").toList();
    for (const QVariant &item : waiting)
        call("cancelQueued", {item.toMap().value(u"id"_s)});
}

void Desk::connectTo(const QString &url, const QString &key)
{
    script.reset();
    backend.reset();
    Store(data() + u"/vesk.sqlite"_s)
        .put(u"settings"_s, u"provider"_s, {},
             {{u"mock"_s, false}, {u"base_url"_s, url}, {u"model"_s, u"any"_s}, {u"parallel"_s, 8}});
    if (!key.isEmpty())
        CredentialStore::save(connectionTarget(url), key);
    reopen();
}

QVariant Desk::sql(const QString &statement) const
{
    QSqlQuery query(QSqlDatabase::database(folder.path()));
    if (!query.exec(statement))
        qWarning("%s: %s", qPrintable(statement), qPrintable(query.lastError().text()));
    return query.next() ? query.value(0) : QVariant();
}

QString Desk::phase() const
{
    return read("uiState").toMap().value(u"phase"_s).toString();
}

QStringList Desk::chat(const QString &kind) const
{
    QStringList lines;
    const QVariantList rows = read("chat").toList();
    for (const QVariant &row : rows) {
        const QVariantMap line = row.toMap();
        const QString content = line.value(u"content"_s).toString();
        const QString its = line.value(u"kind"_s).toString();
        if (kind.isEmpty())
            lines.append(its + u": "_s + content);
        else if (its == kind)
            lines.append(content);
    }
    return lines;
}

QVariantMap Desk::lasting() const
{
    QVariantMap all;
    for (const char *property : {"projects", "tasks", "memory", "checkpoints", "files", "preferences", "queue", "root",
                                 "projectName", "settings"})
        all.insert(QString::fromLatin1(property), read(property));
    return all;
}

bool Desk::waitFor(const std::function<bool()> &condition)
{
    // QTest::qWaitFor sleeps in between, and the model server with it.
    QDeadlineTimer deadline(30000);
    QTimer wake;
    wake.start(50);
    while (!condition() && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    return condition();
}
