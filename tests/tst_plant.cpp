// The simulated nodes: what the other tests rely on and would not see fail.

#include "SimulatedNode.h"
#include "support/TestMain.h"

#include <QTcpSocket>

#include <poll.h>
#include <sys/socket.h>

Q_DECLARE_METATYPE(Fault)

namespace {

// A raw connection to a node, so that the test sees what is on the wire.
struct Client {
    explicit Client(const SimulatedNode &node)
    {
        socket.connectToHost(node.address(), node.port());
        socket.waitForConnected();
    }

    void send(const QByteArray &method, const QString &path, const QByteArray &body = {})
    {
        socket.write(method + ' ' + path.toUtf8() + " HTTP/1.1\r\nHost: node\r\nContent-Length: "
                     + QByteArray::number(body.size()) + "\r\n\r\n" + body);
        socket.waitForBytesWritten();
    }

    // The first line of the answer; empty when the connection ends without one.
    QByteArray status()
    {
        while (!socket.canReadLine() && socket.waitForReadyRead(5000)) { }
        const QByteArray line = socket.readLine();
        socket.readAll();
        return line;
    }

    QTcpSocket socket;
};

} // namespace

class TestPlant final : public QObject {
    Q_OBJECT

private slots:
    void activatesWhatIsPatched()
    {
        const SimulatedNode tx;
        const SimulatedNode rx(NodeDescription::receiver(),
                               QHostAddress(QHostAddress::LocalHostIPv6));
        const QString senderId = tx.senderIds(Essence::Audio).value(0);
        const QString receiverId = rx.receiverIds(Essence::Audio).value(0);
        const QByteArray sdp = tx.manifest(senderId);
        const auto patch = [&](const QJsonObject &file, bool enable) {
            Client client(rx);
            client.send(
                "PATCH", SimulatedNode::receiverStagedPath(receiverId),
                toJson(merged(
                    file,
                    jsonObject({{"master_enable", enable},
                                {"activation", jsonObject({{"mode", "activate_immediate"}})}}))));
            return client.status();
        };
        const auto subscribed = [&rx] {
            return rx.collection(QStringLiteral("receivers"))
                .at(1)[QLatin1String("subscription")][QLatin1String("sender_id")];
        };

        const QJsonObject file =
            jsonObject({{"data", QString::fromUtf8(sdp)}, {"type", "application/sdp"}});
        QCOMPARE(patch(jsonObject({{"sender_id", senderId}, {"transport_file", file}}), true),
                 QByteArray("HTTP/1.1 200 OK\r\n"));
        const QJsonObject active = rx.receiverActive(receiverId);
        QCOMPARE(active[QLatin1String("sender_id")].toString(), senderId);
        const QJsonValue leg = active[QLatin1String("transport_params")][0];
        QVERIFY(sdp.contains("c=IN IP4 " + leg[QLatin1String("multicast_ip")].toString().toUtf8()));
        QCOMPARE(leg[QLatin1String("source_ip")].toString(), tx.address().toString());
        QCOMPARE(subscribed().toString(), senderId);

        QCOMPARE(patch(jsonObject({{"receiver_id", QJsonValue()}}), true),
                 QByteArray("HTTP/1.1 400 Bad Request\r\n"));
        QCOMPARE(rx.receiverActive(receiverId), active);
        patch({}, false);
        QVERIFY(!rx.receiverActive(receiverId)[QLatin1String("master_enable")].toBool(true));
        QVERIFY(subscribed().isNull());
    }

    void endsConnectionsAsTheFaultSays_data()
    {
        QTest::addColumn<Fault>("fault");
        QTest::addColumn<int>("error"); // of recv(); 0: it says that the peer has closed
        QTest::newRow("reset") << Fault::reset() << ECONNRESET;
        QTest::newRow("closed in good order") << Fault::drop() << 0;
    }
    void endsConnectionsAsTheFaultSays()
    {
        QFETCH(Fault, fault);
        QFETCH(int, error);
        SimulatedNode node;
        node.setFault(senders, fault);
        Client client(node);
        client.send("GET", senders);
        // QTcpSocket tells both apart by its error text only.
        pollfd end{static_cast<int>(client.socket.socketDescriptor()), POLLIN, 0};
        QCOMPARE(::poll(&end, 1, 5000), 1);
        char byte = 0;
        errno = 0;
        QVERIFY(::recv(end.fd, &byte, 1, 0) <= 0);
        QCOMPARE(errno, error);
    }

    void waitsForNobodyWhenItEnds_data()
    {
        QTest::addColumn<Fault>("fault");
        QTest::newRow("requests that hang") << Fault::hang();
        QTest::newRow("requests that are delayed") << Fault::delay(24 * 3600 * 1000);
        QTest::newRow("floods that nobody reads") << Fault::flood(0);
    }
    void waitsForNobodyWhenItEnds()
    {
        QFETCH(Fault, fault);
        std::vector<std::unique_ptr<Client>> waiting;
        SimulatedNode node;
        node.setFault(senders, fault);
        for (int count = 0; count < 30; ++count) {
            waiting.push_back(std::make_unique<Client>(node));
            waiting.back()->send("GET", senders);
        }
        QTRY_COMPARE(node.requests().size(), 30);
        Client client(node);
        client.send("GET", SimulatedNode::collectionPath(QStringLiteral("flows")));
        QCOMPARE(client.status(), QByteArray("HTTP/1.1 200 OK\r\n"));
        node.stop();
        QVERIFY(!node.isListening());
        while (waiting.front()->socket.waitForReadyRead(5000)) {
            waiting.front()->socket.readAll();
        }
        QVERIFY(waiting.front()->socket.error() == QAbstractSocket::RemoteHostClosedError);
    }

private:
    const QString senders = SimulatedNode::collectionPath(QStringLiteral("senders"));
};

NODEPATCH_TEST_MAIN(TestPlant)
#include "tst_plant.moc"
