// The list of models that a server offers.

#include "model_catalog.h"

#include <QFuture>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPromise>
#include <QRegularExpression>
#include <QThreadPool>

#include <algorithm>
#include <memory>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

constexpr int catalogSilenceMs = 20000;
constexpr auto longestAnswer = std::chrono::seconds(60);
constexpr qsizetype maxCatalogBytes = 8 * 1024 * 1024;
constexpr qsizetype maxOwnModels = 5000;
constexpr qsizetype maxIdChars = 200;

bool isOffered(const QString &provider, const QString &model)
{
    static const QRegularExpression openAi(u"^(gpt-[4-9]|o[1-9])"_s);
    if (provider == "OpenAI"_L1)
        return model.contains(openAi);
    if (provider == "Gemini"_L1)
        return model.contains("gemini"_L1);
    return model.contains("qwen"_L1, Qt::CaseInsensitive);
}

bool isForOtherUses(const QString &model)
{
    static const QStringList uses{u"image"_s, u"audio"_s, u"realtime"_s, u"embedding"_s, u"tts"_s};
    return std::ranges::any_of(uses, [&](const QString &use) { return model.contains(use); });
}

/// A name that a person can read and a request can carry.
bool isPlain(const QString &model)
{
    return !model.isEmpty() && model.size() <= maxIdChars
        && std::ranges::none_of(model, [](QChar c) { return c.category() == QChar::Other_Control; });
}

/// A list with its form for the interface.
struct Reading {
    Catalog catalog;
    QVariantList shown;
};

Reading readingOf(const Catalog &catalog)
{
    Reading reading{catalog, {}};
    for (const QString &model : catalog.models)
        reading.shown.append(QVariantMap{{u"id"_s, model}});
    return reading;
}

} // namespace

QString ownServerName()
{
    return u"Свой сервер"_s;
}

QNetworkRequest catalogRequest(const QString &base, const QString &key)
{
    QNetworkRequest request(QUrl(base.endsWith(u'/') ? base + u"models"_s : base + u"/models"_s));
    if (!key.isEmpty())
        request.setRawHeader("Authorization", "Bearer " + key.toUtf8());
    request.setTransferTimeout(catalogSilenceMs);
    return request;
}

Catalog catalogOf(const QString &provider, const QByteArray &body, const QString &key)
{
    const bool own = provider == ownServerName();
    const QJsonObject document = QJsonDocument::fromJson(body).object();
    const QJsonArray data = document["data"_L1].toArray();
    Catalog catalog;
    // A server without a model may say null.
    catalog.isList = document["data"_L1].isArray() || document["object"_L1].toString() == "list"_L1;
    for (const QJsonValue &entry : data) {
        QString model = entry["id"_L1].toString();
        if (provider == "Gemini"_L1 && model.startsWith("models/"_L1))
            model.remove(0, 7);
        if (!key.isEmpty() && model.contains(key))
            continue;
        if (isPlain(model) && (own || (isOffered(provider, model) && !isForOtherUses(model))))
            catalog.models.append(model);
    }
    std::ranges::sort(catalog.models);
    catalog.models.erase(std::unique(catalog.models.begin(), catalog.models.end()), catalog.models.end());
    catalog.isCut = catalog.models.size() > maxOwnModels;
    if (catalog.isCut)
        catalog.models.resize(maxOwnModels);
    return catalog;
}

void ModelCatalog::beginFor(const QString &provider, const QString &agent)
{
    abort();
    shown.clear();
    catalogProvider = provider;
    catalogAgent = agent;
}

void ModelCatalog::ask(const QString &base, const QString &key)
{
    modelsReply = catalogNetwork.get(catalogRequest(base, key));
    collect(modelsReply, maxCatalogBytes, longestAnswer,
            [this, base, key, noted = catalogGeneration](const ServerReply &answer) {
                if (noted == catalogGeneration)
                    read(answer, base, key);
            });
}

void ModelCatalog::abort()
{
    ++catalogGeneration;
    reading = false;
    const QPointer<QNetworkReply> old = std::exchange(modelsReply, nullptr);
    if (old)
        old->abort();
}

/// Beside the interface: a list of megabytes takes tens of milliseconds to read.
void ModelCatalog::read(const ServerReply &answer, const QString &base, const QString &key)
{
    modelsReply = nullptr;
    reading = true;
    auto promise = std::make_shared<QPromise<Reading>>();
    const bool hadKey = !key.isEmpty();
    promise->future().then(this, [this, answer, base, hadKey, noted = catalogGeneration](const Reading &read) {
        if (noted != catalogGeneration)
            return;
        reading = false;
        shown = read.shown;
        Q_EMIT finished({{answer.status, answer.networkError, {}, answer.endless}, read.catalog, base, hadKey});
    });
    QThreadPool::globalInstance()->start([promise, answer, key, provider = catalogProvider] {
        promise->start();
        promise->addResult(answer.isAccepted() ? readingOf(catalogOf(provider, answer.body, key)) : Reading());
        promise->finish();
    });
}

} // namespace vesk
