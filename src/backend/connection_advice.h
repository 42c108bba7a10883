#pragma once

#include <QString>

namespace vesk {

/// What is known of a failed request to a server of the user's own.
struct ServerFailure {
    QString url;
    QString model; ///< Empty where none was asked for.
    bool hasKey = false;
    int status = 0; ///< HTTP status, 0 when there was none.
    int networkError = 0; ///< QNetworkReply::NetworkError.
    bool foreign = false; ///< The server speaks, but not as a model server does.
    QString said{}; ///< The server's own words, without secrets.
};

/// What to do about it: one or two sentences for a person. Of the address they show scheme, host, port and path.
QString serverAdvice(const ServerFailure &failure);

} // namespace vesk
