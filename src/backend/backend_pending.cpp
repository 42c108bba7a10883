// What the window already has a place for and this version can't do yet. Each operation says so and changes nothing.

#include "backend.h"

#include "helpers.h"

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

void notYet(const QString &what)
{
    require(false, what + u" — пока недоступно в этой версии."_s);
}

} // namespace

void Backend::connectProvider(const QString &, const QString &, const QString &)
{
    guard([] { notYet(u"Подключение модели из окна"_s); });
}

void Backend::connectAgents(const QString &, const QString &)
{
    guard([] { notYet(u"Связи агентов"_s); });
}

void Backend::addWorkflowTemplate()
{
    guard([] { notYet(u"Пример команды"_s); });
}

} // namespace vesk
