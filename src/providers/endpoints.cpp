// The providers that are known by name.

#include "endpoints.h"

#include "helpers.h"

#include <QUrl>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

struct Endpoint {
    QLatin1StringView provider;
    QLatin1StringView baseUrl;
    const char *replacedBy = nullptr; ///< An environment variable.
};

constexpr Endpoint endpoints[] = {
    {"OpenAI"_L1, "https://api.openai.com/v1"_L1},
    {"Gemini"_L1, "https://generativelanguage.googleapis.com/v1beta/openai"_L1},
    {"Alem Plus"_L1, "https://api.alem-plus.example/v1"_L1, "VESK_ALEM_URL"},
};

QString hostOf(const QString &provider)
{
    return QUrl(endpoint(provider)).host();
}

} // namespace

QString endpoint(const QString &provider)
{
    for (const Endpoint &known : endpoints) {
        if (provider != known.provider)
            continue;
        const QString replacement = known.replacedBy ? qEnvironmentVariable(known.replacedBy) : QString();
        return replacement.isEmpty() ? QString(known.baseUrl) : replacement;
    }
    refuse(u"Неизвестный провайдер"_s);
}

bool isPublished(const QUrl &address)
{
    return std::ranges::any_of(endpoints, [&](const Endpoint &known) {
        return QUrl(endpoint(QString(known.provider))).host() == address.host();
    });
}

QString openAiHost()
{
    return hostOf(u"OpenAI"_s);
}

QString geminiHost()
{
    return hostOf(u"Gemini"_s);
}

} // namespace vesk
