#pragma once

#include <QJsonArray>
#include <QList>
#include <QMetaType>
#include <QObject>
#include <QString>

class QNetworkAccessManager;

// The client of the nodes' HTTP APIs: AMWA IS-04 v1.3 (Node API) for what a node has, AMWA IS-05
// v1.1 (Connection API) for what it does with it. Needs Qt Core and Network only.
//
// A node is named by its host: the address (IPv4 dotted, IPv6 colon form without brackets, or a
// name), ':' and the port in decimal, such as 10.0.0.5:80.
//
// Every operation is synchronous, on the GUI thread, and waits in nested event loops (see
// SyncHttp.h): while one runs, anything else may run too, except that no more than four requests
// wait at a time. Nothing throws. A failed request looks like an empty collection, or like a false
// result with, where there is one, an error text; a null error pointer receives nothing. Nothing is
// cached between calls.
//
// What a node sends is not trusted: members may be missing, null or of any type, which reads as
// empty text.
class NmosClient final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(NmosClient)

public:
    // What a sender or receiver carries. Operations that take a kind as an integer take any other
    // value for video.
    enum FormatKind {
        Video = 0,
        Audio = 1,
        Data = 2,
    };

    // One video sender of a node, as offered to the operator.
    struct SenderConnection {
        QString id;
        QString label; // never empty
        QString manifestHref; // where its SDP is read; may be empty
        QString host;
        QString displayName; // node name, " (", host, "-", label and ")"
    };

    // One video receiver of a node, as offered to the operator.
    struct ReceiverConnection {
        QString id;
        QString label; // never empty
        QString host;
        QString displayName; // formed as for senders
    };

    // The sender side of a patch. Start from an empty record.
    struct SenderLookup {
        QString id;
        QString label;
        QString manifestHref;
        QString host;
        QString audioSenderId; // of the same device; empty when it has none
        QString dataSenderId; // likewise
    };

    // The receiver side of a patch. Start from an empty record.
    struct ReceiverLookup {
        QString id;
        QString label;
        QString host;
        QString audioReceiverId; // of the same device; empty when it has none
        QString dataReceiverId; // likewise
    };

    explicit NmosClient(QObject *parent = nullptr);

    // GETs a URL and returns the JSON array in its body; empty on any failure. A request that fails
    // or is not answered with a 2xx status is logged ("Unable to connect:" and the reason); a body
    // that is no JSON array is not.
    QJsonArray getJsonArray(const QString &url);

    // Whether the node lists at least one receiver, or sender (IS-04 "/receivers/", "/senders/").
    // One GET.
    bool hasReceivers(const QString &host);
    bool hasSenders(const QString &host);

    // The node's labelled video receivers, or senders, in the node's order; empty on any failure.
    // Of several with one label only the first counts, and a receiver of another format takes the
    // label, too. A sender's format is that of the flow it names. One GET for receivers, two for
    // senders.
    QList<ReceiverConnection> listReceivers(const QString &host, const QString &nodeName);
    QList<SenderConnection> listSenders(const QString &host, const QString &nodeName);

    // Finds the receiver to patch: the first of the format kind (see FormatKind), which must also
    // have the id preferredId when that is not empty. Fills id, label and host of the record and
    // returns true; returns false, with an empty id, when there is none. One GET.
    bool findReceiver(const QString &host, int kind, ReceiverLookup *receiver,
                      const QString &preferredId);

    // Finds the sender to patch. With preferredId: the sender of that id, of whatever format (one
    // GET). Without: the first sender of the node's first flow of the format kind; later flows are
    // not tried (two GETs). Fills id, label, manifestHref and host; returns true only when id and
    // manifestHref are not empty. After false the record may be partly filled.
    bool findSender(const QString &host, int kind, SenderLookup *sender,
                    const QString &preferredId);

    // Fills audioReceiverId and dataReceiverId with the last audio and data receiver of the device
    // that holds the record's receiver (IS-04 "/devices/"); fields without a match keep their
    // value. Returns false only when the node's devices or receivers came back empty. Needs id and
    // host. Two GETs.
    bool fillDeviceReceivers(ReceiverLookup *receiver);

    // Fills audioSenderId and dataSenderId from the device that holds the record's sender, in the
    // order of the node's flows, until both are found; both are overwritten, with empty text when
    // the device has none. Returns false, with the record untouched, only when the node's devices
    // or senders came back empty. Needs id and host. Three GETs.
    bool fillDeviceSenders(SenderLookup *sender);

    // Reads the sender's SDP from its manifestHref. True, with the text in sdp, when the answer is
    // 2xx and not empty; else sdp stays untouched. One GET; a second one with the address's user
    // name and password, when it has them and the server wants them (401).
    bool fetchSenderSdp(const SenderLookup &sender, QString *sdp);

    // Makes the sender activate its staged parameters at once (IS-05 PATCH of
    // "/single/senders/{id}/staged"). On failure the error is "Failed to fetch Sender SDP.".
    bool activateSender(const SenderLookup &sender, QString *error = nullptr);

    // Patches the receiver to the sender: reads the sender's SDP, activating the sender first when
    // it offers none yet, and PATCHes the receiver's staged endpoint with it for immediate
    // activation. True when the receiver answers 2xx. The error is "Failed to fetch Sender SDP."
    // (the receiver is then untouched) or the reply's error text; a status other than 2xx that the
    // network layer does not report as an error leaves it as it was.
    bool connectReceiver(const SenderLookup &sender, const ReceiverLookup &receiver,
                         QString *error = nullptr);

    // Disconnects the receiver at once (master_enable false, no transport file). Result and error
    // as for connectReceiver().
    bool disconnectReceiver(const ReceiverLookup &receiver, QString *error = nullptr);

    // Reads the SDP that the receiver has staged. False, with sdp untouched, when the request fails
    // (logged as in getJsonArray()), the answer is no JSON object or an empty one, or its transport
    // file data is null. Data that is missing or no string gives true with an empty text. One GET.
    bool fetchReceiverSdp(const ReceiverLookup &receiver, QString *sdp);

private:
    bool patchStaged(const QString &host, QLatin1String collection, const QString &id,
                     const QJsonObject &body, QString *error);

    QNetworkAccessManager *manager;
};

Q_DECLARE_METATYPE(NmosClient::SenderConnection)
Q_DECLARE_METATYPE(NmosClient::ReceiverConnection)
