#pragma once

#include "openai_provider.h"

#include <QJsonObject>
#include <QString>

namespace vesk {

class Store;

/// The connection document, row "provider" of "settings": {"mock", "base_url", "model", "parallel"}, after a connection
/// by the name of a provider also "provider". What an unused data folder has when there is none. `key` is the key
/// stored for its address; a remote server without one is not asked, so "mock" is true then.
QJsonObject storedConnection(const Store &store, QString &key);

/// Points a provider at an address. Which dialect the server speaks, and whether it is one of the user's own, follows
/// from its host; what it can do, from what was measured there.
void setConnection(OpenAICompatibleProvider &target, const Store &store, const QString &url, const QString &model,
                   const QString &key);

/// What was measured of a model behind an address (table "model_profiles", docs/connections.md); empty when nothing
/// was.
QJsonObject serverFacts(const Store &store, const QString &url, const QString &model);
void storeServerFacts(Store &store, const QString &url, const QString &model, QJsonObject facts);

/// What requests to a server go by.
ServerTraits traitsOf(const QJsonObject &facts);

/// The least context window, in tokens, in which a plan fits.
constexpr int leastWindow = 16000;

/// That the window is too small for a plan, and what to set on the server; empty when it isn't, or nobody knows.
QString windowAdvice(const QJsonObject &facts, const QString &url);

} // namespace vesk
