#include "endpoints.h"

#include "credential_store.h"
#include "helpers.h"

#include <QTest>
#include <QUrl>

using namespace vesk;

class EndpointsTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void aKnownProviderHasItsAddress_data();
    void aKnownProviderHasItsAddress();
    void anUnknownNameIsRefused_data();
    void anUnknownNameIsRefused();
    void theHostsAreThoseOfTheAddresses();
    void theAddressOfAlemPlusCanBeReplaced();
    void theKeyOfAConnectionFollowsItsAddress();
};

void EndpointsTest::aKnownProviderHasItsAddress_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("OpenAI") << "/v1";
    QTest::newRow("Gemini") << "/v1beta/openai";
    QTest::newRow("Alem Plus") << "/v1";
}

void EndpointsTest::aKnownProviderHasItsAddress()
{
    const QUrl url(endpoint(QTest::currentDataTag()), QUrl::StrictMode);

    QVERIFY(url.isValid());
    QCOMPARE(url.scheme(), "https");
    QTEST(url.path(), "path");
    QVERIFY(url.userInfo().isEmpty());
}

void EndpointsTest::anUnknownNameIsRefused_data()
{
    QTest::addColumn<QString>("name");
    for (const char *name : {"openai", "OPENAI", " OpenAI", "OpenAI ", "AlemPlus", ""})
        QTest::addRow("<%s>", name) << name;
}

void EndpointsTest::anUnknownNameIsRefused()
{
    QFETCH(QString, name);
    QString text;
    try {
        endpoint(name);
    } catch (const std::runtime_error &error) {
        text = textOf(error);
    }
    QCOMPARE(text, "Неизвестный провайдер");
}

void EndpointsTest::theHostsAreThoseOfTheAddresses()
{
    QCOMPARE(openAiHost(), "api.openai.com");
    QCOMPARE(geminiHost(), "generativelanguage.googleapis.com");
}

void EndpointsTest::theAddressOfAlemPlusCanBeReplaced()
{
    const QString own = endpoint("Alem Plus");
    qputenv("VESK_ALEM_URL", "http://127.0.0.1:8080/v1");
    const QString replaced = endpoint("Alem Plus");
    const QString other = endpoint("OpenAI");
    qputenv("VESK_ALEM_URL", "");
    const QString emptied = endpoint("Alem Plus");
    qunsetenv("VESK_ALEM_URL");

    QCOMPARE(replaced, "http://127.0.0.1:8080/v1");
    QCOMPARE(other, "https://api.openai.com/v1");
    QCOMPARE(emptied, own);
}

void EndpointsTest::theKeyOfAConnectionFollowsItsAddress()
{
    // sha256 of the address, as any other program computes it
    QCOMPARE(connectionTarget("https://api.openai.com/v1"),
             "VESK:d9617135d6fdd0a2cde722d637a1dfcc3da37515708b3ea5d66ae607c8ac785e");
    QVERIFY(connectionTarget("https://api.openai.com/v1/") != connectionTarget("https://api.openai.com/v1"));
    QCOMPARE(connectionTarget("http://пример.example"), "VESK:" + digest("http://пример.example"));
    QCOMPARE(agentTarget("1b2c"), "VESK:agent:1b2c");
}

QTEST_GUILESS_MAIN(EndpointsTest)
#include "tst_endpoints.moc"
