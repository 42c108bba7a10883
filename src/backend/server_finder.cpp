// Model servers on this machine.

#include "server_finder.h"

#include "model_catalog.h"

#include <QNetworkReply>
#include <QNetworkRequest>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr auto longestSearch = std::chrono::milliseconds(1900);
constexpr qsizetype maxServerBytes = 1024 * 1024;
constexpr qsizetype maxModels = 200;

bool asksForKey(const ServerReply &answer)
{
    return answer.status == 401 || answer.status == 403;
}

} // namespace

QList<ServerFinder::Place> ServerFinder::usualPlaces()
{
    return {{u"llama.cpp"_s, u"http://127.0.0.1:8080/v1"_s},
            {u"Ollama"_s, u"http://127.0.0.1:11434/v1"_s},
            {u"LM Studio"_s, u"http://127.0.0.1:1234/v1"_s},
            {u"vLLM"_s, u"http://127.0.0.1:8000/v1"_s}};
}

QVariantList ServerFinder::found() const
{
    QVariantList list;
    for (const QVariantMap &server : servers) {
        if (!server.isEmpty())
            list.append(server);
    }
    return list;
}

void ServerFinder::search(const QList<Place> &places)
{
    stop();
    servers.clear();
    servers.resize(places.size());
    waitingFor = places.size();
    for (qsizetype i = 0; i < places.size(); ++i) {
        const Place &place = places[i];
        QNetworkReply *reply = network.get(catalogRequest(place.url, {}));
        // A new search forgets the answers to this one, and ends it.
        connect(this, &ServerFinder::stopped, reply, &QNetworkReply::abort);
        collect(reply, maxServerBytes, longestSearch, [this, i, place, noted = generation](const ServerReply &answer) {
            if (noted == generation)
                take(i, place.name, place.url, answer);
        });
    }
}

void ServerFinder::stop()
{
    ++generation;
    waitingFor = 0;
    Q_EMIT stopped(QPrivateSignal());
}

void ServerFinder::take(qsizetype place, const QString &name, const QString &url, const ServerReply &answer)
{
    --waitingFor;
    const Catalog catalog = answer.isAccepted() ? catalogOf(ownServerName(), answer.body) : Catalog();
    if (catalog.isList || asksForKey(answer)) {
        QVariantList models;
        for (const QString &model : catalog.models.first(std::min(catalog.models.size(), maxModels)))
            models.append(QVariantMap{{u"id"_s, model}});
        servers[place] = {{u"name"_s, name}, {u"url"_s, url}, {u"models"_s, models}};
    }
    Q_EMIT changed();
    if (waitingFor == 0)
        Q_EMIT finished();
}

} // namespace vesk
