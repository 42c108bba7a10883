#pragma once

#include <QJsonObject>
#include <QString>

namespace vesk {

class OpenAICompatibleProvider;
class Store;

/// The connection document, row "provider" of "settings": {"mock", "base_url", "model", "parallel"}, after a connection
/// by the name of a provider also "provider". What an unused data folder has when there is none. `key` is the key
/// stored for its address; a remote server without one is not asked, so "mock" is true then.
QJsonObject storedConnection(const Store &store, QString &key);

/// Points a provider at an address. Which dialect the server speaks, and whether it is one of the user's own, follows
/// from its host.
void setConnection(OpenAICompatibleProvider &target, const QString &url, const QString &model, const QString &key);

} // namespace vesk
