#pragma once

#include <QString>
#include <QUrl>

namespace vesk {

/// The base URL of a known provider: "OpenAI", "Gemini" or "Alem Plus", with this case. That of "Alem Plus" can be
/// replaced by the environment variable VESK_ALEM_URL. Throws "Неизвестный провайдер" for any other name.
QString endpoint(const QString &provider);

/// Whether the address belongs to one of them; any other is a server of the user's own.
bool isPublished(const QUrl &address);

/// The host names of two of them.
QString openAiHost();
QString geminiHost();

} // namespace vesk
