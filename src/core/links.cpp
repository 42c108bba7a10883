// Walks over what waits for what.

#include "links.h"

#include "helpers.h"

#include <functional>

namespace vesk {

namespace {

using LinkCheck = std::function<void(const QString &from, const QString &to)>;

class DepthFirstWalk {
public:
    DepthFirstWalk(const Links &links, const QString &cycleFault, const LinkCheck &check)
        : links(links)
        , cycleFault(cycleFault)
        , check(check)
    {
    }

    void visit(const QString &id)
    {
        const State state = states.value(id, State::Unseen);
        require(state != State::OnPath, cycleFault);
        if (state == State::Done)
            return;

        states.insert(id, State::OnPath);
        for (const QString &next : links.value(id)) {
            check(id, next);
            visit(next);
        }
        states.insert(id, State::Done);
    }

private:
    enum class State { Unseen, OnPath, Done };

    const Links &links;
    const QString &cycleFault;
    const LinkCheck &check;
    QHash<QString, State> states;
};

} // namespace

QSet<QString> upstreamOf(const Links &links, const QString &id)
{
    QSet<QString> found;
    QStringList open{id};
    while (!open.isEmpty()) {
        for (const QString &next : links.value(open.takeLast())) {
            if (!links.contains(next) || found.contains(next))
                continue;
            found.insert(next);
            open.append(next);
        }
    }
    return found;
}

void requireSoundLinks(const Links &links, const QStringList &ids, const QString &cycleFault, const LinkCheck &check)
{
    DepthFirstWalk walk(links, cycleFault, check);
    for (const QString &id : ids)
        walk.visit(id);
}

} // namespace vesk
