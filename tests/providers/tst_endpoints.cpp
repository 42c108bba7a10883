#include "endpoints.h"

#include "credential_store.h"
#include "helpers.h"

#include <QTest>

using namespace vesk;

class EndpointsTest : public QObject {
    Q_OBJECT
private Q_SLOTS:
    void anUnknownNameIsRefused()
    {
        for (const char *name : {"openai", "OpenAI ", "AlemPlus", ""})
            QVERIFY_THROWS_EXCEPTION(std::runtime_error, endpoint(name));
    }

    void theAddressOfAlemPlusCanBeReplaced()
    {
        const QString own = endpoint("Alem Plus");
        QVERIFY(own.startsWith("https://"));
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

    void theKeyOfAConnectionFollowsItsAddress()
    {
        // sha256 of the address, as any other program computes it
        QCOMPARE(connectionTarget("https://api.openai.com/v1"),
                 "VESK:d9617135d6fdd0a2cde722d637a1dfcc3da37515708b3ea5d66ae607c8ac785e");
        QCOMPARE(connectionTarget("http://пример.example"), "VESK:" + digest("http://пример.example"));
        QCOMPARE(agentTarget("1b2c"), "VESK:agent:1b2c");
    }
};

QTEST_GUILESS_MAIN(EndpointsTest)
#include "tst_endpoints.moc"
