// A failure to reach a model server, as advice.

#include "connection_advice.h"

#include <QNetworkReply>
#include <QRegularExpression>
#include <QUrl>

using namespace Qt::StringLiterals;

namespace vesk {

namespace {

QString shown(const QString &url)
{
    return QUrl(url).toDisplayString(QUrl::RemoveUserInfo | QUrl::RemoveQuery | QUrl::RemoveFragment);
}

bool speaksOf(const QString &said, const QString &pattern)
{
    return said.contains(QRegularExpression(pattern, QRegularExpression::CaseInsensitiveOption));
}

bool isAboutProxy(const ServerFailure &failure)
{
    return failure.status == 407
        || (failure.networkError >= QNetworkReply::ProxyConnectionRefusedError
            && failure.networkError <= QNetworkReply::UnknownProxyError);
}

bool isAboutModel(const ServerFailure &failure)
{
    return (failure.status == 404 || failure.status == 400 || failure.status == 422 || failure.status >= 500)
        && speaksOf(failure.said,
                    u"model.*(not found|not exist|not loaded|no longer|unknown|load)|no models? loaded"_s);
}

QString wrongPath(const QString &url)
{
    const QString path = QUrl(url).path();
    const QString found = u"По адресу "_s + shown(url) + u" отвечает не сервер моделей. "_s;
    if (path.endsWith("/v1"_L1))
        return found + u"Проверьте порт и путь."_s;
    return found + u"Похоже, в адресе не хватает /v1: попробуйте "_s + shown(url + u"/v1"_s) + u'.';
}

QString withoutConnection(const ServerFailure &failure)
{
    const QString server = shown(failure.url);
    switch (failure.networkError) {
    case QNetworkReply::ConnectionRefusedError:
        return u"Сервер "_s + server + u" не запущен или слушает другой порт. Запустите его и повторите проверку."_s;
    case QNetworkReply::HostNotFoundError:
        return u"Компьютер "_s + QUrl(failure.url).host() + u" не найден. Проверьте имя в адресе и сеть."_s;
    case QNetworkReply::TimeoutError:
    case QNetworkReply::OperationCanceledError:
        return u"Сервер "_s + server
            + u" не ответил вовремя. Возможно, модель ещё загружается: подождите и повторите проверку."_s;
    case QNetworkReply::SslHandshakeFailedError:
        return u"Защищённое соединение с "_s + server
            + u" не установлено: сертификат не принят. Добавьте его в доверенные на этом компьютере или укажите имя, "
              "на которое он выдан. Сервер без шифрования на этом компьютере указывают через http://."_s;
    default:
        return u"Сервер "_s + server + u" оборвал соединение. Проверьте порт и то, что это сервер моделей."_s;
    }
}

QString refused(const ServerFailure &failure)
{
    if (failure.status == 401 || failure.status == 403)
        return failure.hasKey ? u"Сервер не принял ключ. Проверьте ключ этого сервера и доступ к модели."_s
                              : u"Сервер требует ключ. Введите ключ этого сервера."_s;
    if (failure.status == 429)
        return u"Сервер просит подождать: слишком много запросов. Повторите проверку через минуту."_s;
    if (failure.status == 503)
        return u"Сервер занят или ещё загружает модель. Подождите и повторите проверку."_s;
    if (failure.status >= 500)
        return u"Ошибка на сервере "_s + shown(failure.url)
            + u". Посмотрите его журнал: часто не хватает памяти для модели."_s;
    return u"Сервер отклонил запрос (HTTP "_s + QString::number(failure.status)
        + u"). Обновите сервер или выберите другую модель."_s;
}

} // namespace

QString serverAdvice(const ServerFailure &failure)
{
    if (isAboutProxy(failure))
        return u"Запрос не прошёл через прокси. Проверьте прокси в настройках системы или добавьте сервер в "
               "исключения (переменная no_proxy)."_s;
    if (failure.status == 0)
        return withoutConnection(failure);
    if (failure.status >= 300 && failure.status <= 399)
        return u"Сервер "_s + shown(failure.url)
            + u" пересылает запросы на другой адрес, ключ туда не отправлен. Укажите конечный адрес."_s;
    if (isAboutModel(failure))
        return failure.status == 503
            ? u"Модель на сервере ещё загружается. Подождите и повторите проверку."_s
            : u"Модель "_s + failure.model + u" на сервере не загружена. Загрузите её или выберите другую из списка."_s;
    if (failure.foreign || failure.status == 404 || failure.status == 405)
        return wrongPath(failure.url);
    if (failure.status <= 299 && failure.networkError != 0)
        return withoutConnection(failure);
    if (failure.status <= 299)
        return u"Модель "_s + failure.model
            + u" ответила не в том виде: агентам нужен JSON. Выберите другую модель или увеличьте её контекст."_s;
    return refused(failure);
}

} // namespace vesk
