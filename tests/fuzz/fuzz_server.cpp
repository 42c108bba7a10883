// What a server nobody knows answers to the question for its models, and to those that measure it. The first byte
// chooses the status and the question.

#include "fuzz.h"
#include "measure_plan.h"
#include "model_catalog.h"
#include "server_connection.h"

#include <QJsonObject>

#include <algorithm>

using namespace vesk;

namespace {

constexpr auto key = "geheim";

void checkCatalog(const QByteArray &bytes)
{
    for (const QString &provider : {ownServerName(), QStringLiteral("Gemini")}) {
        const Catalog catalog = catalogOf(provider, bytes, QString::fromLatin1(key));
        holds(std::ranges::is_sorted(catalog.models));
        holds(std::ranges::none_of(catalog.models,
                                   [](const QString &model) { return model.contains(QLatin1StringView(key)); }));
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const QByteArray bytes = bytesOf(data + 1, size - 1);
    checkCatalog(bytes);

    // The same answer to everything: the questions come to an end, and the facts can be told.
    QList<ProbeAnswer> answers;
    while (const std::optional<Probe> probe = nextProbe(answers)) {
        ProbeAnswer answer = probeAnswer(*probe, {.status = data[0] % 2 ? 200 : 400, .body = bytes});
        answer.lines = probeLines(*probe, answers);
        holds(answer.lines >= 0 && answer.lines <= 20000);
        answers.append(answer);
        holds(answers.size() <= 8);
    }
    const QJsonObject facts = factsOf(answers);
    const QString url = QStringLiteral("http://127.0.0.1:8080/v1");
    holds(measureRows(facts, url, false).size() == 6);
    holds(windowAdvice(facts, url).isEmpty() || facts.contains(QLatin1StringView("window")));
    return 0;
}
