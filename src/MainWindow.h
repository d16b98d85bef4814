#pragma once

#include "ManualDevice.h"
#include "nmos/NmosClient.h"

#include <QList>
#include <QMainWindow>
#include <QSet>

#include <functional>
#include <optional>

struct Message;
struct NodeEndpoint;
class BrowserWindow;
class IntakeQueue;
class LightIndicator;
class NMOSMdnsBrowser;
class ProductAdRotator;
class QComboBox;
class QFrame;
class QPushButton;
class QSettings;

// The program's one main window: a row for the transmitting and one for the receiving node, each
// with an address selector, a status light and a button that shows its SDP, and the commands below.
//
// A light is on exactly when the last check of its row found a sender (transmitter) or a receiver
// (receiver) at the node that the row names; it is off while the field is empty. A check runs on
// every change of a selector's text and on every choice of an entry. All requests are synchronous
// and wait in nested event loops (see net/SyncHttp.h), so any slot here may run inside the wait of
// another.
//
// The selectors list the labelled video senders and receivers of every node that discovery reports
// or that was added by hand, sorted by text; a node known both ways, under one host, has the
// entries from discovery. What an intake adds or removes does not change what the operator typed or
// chose. Exception: removing the chosen entry empties the selector; if the same intake adds the
// same sender or receiver under another name, that entry is chosen.
//
// While Connect, Disconnect or Show SDP waits for nodes, the mouse cursor is busy.
//
// Settings (organisation and application of Identity.h): "lastTxIp" and "lastRxIp", the text of a
// selector, trimmed, when its check last succeeded; "manualDevices" (see ManualDevice.h);
// "LastUpdateTime", the day of the last update check.
class MainWindow final : public QMainWindow {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(MainWindow)

public:
    explicit MainWindow(QWidget *parent = nullptr);
    ~MainWindow() override;

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void showEvent(QShowEvent *event) override;
    // Ends what the window's commands wait for and stops discovery, even if the browser window
    // stays open. Until the window is destroyed no request is sent and no dialog comes up.
    void closeEvent(QCloseEvent *event) override;

private slots:
    void checkTx();
    void checkRx();
    void showTxSdp();
    void showRxSdp();
    void doConnect();
    void doDisconnect();
    void doAddDevice();
    void doRemoveDevice();
    void onMdnsDeviceFound(const QString &serviceName, const QUrl &url,
                           const QJsonDocument &selfDoc);

private:
    // The ids of removed entries that were chosen; empty when none was.
    struct RemovedChoice {
        QString senderId;
        QString receiverId;
    };
    using NodeProbe = bool (NmosClient::*)(const QString &host);

    // The window itself
    QWidget *buildCentralWidget();
    QWidget *buildNodeRow(const QString &title, QComboBox *&combo, LightIndicator *&light,
                          QPushButton *&sdpButton);
    void connectCommands();
    void check(QComboBox *combo, LightIndicator *light, NodeProbe probe,
               const QString &settingsKey);
    // The id of the record of the entry that the selector shows; empty when it shows typed text.
    static QString selectedId(const QComboBox *combo);
    // The host of that record; else the selector's text, trimmed.
    static QString selectedHost(const QComboBox *combo);

    // Runs a command of the operator with a busy cursor, then shows the message that it returns.
    // True when it returns none.
    bool runCommand(const std::function<std::optional<Message>()> &command);

    // Node intake
    void startDiscovery();
    // removed keeps what the first run of an intake has removed for those after an interruption.
    void takeInDiscovered(const QString &serviceName, const QString &host, RemovedChoice *removed);
    // Asks a manual device for its senders and receivers and lists them. Does nothing when
    // discovery has reported the host, or when the device is not in the list any more.
    void probeManualDevice(const ManualDevice &device);
    void probeManualDevices();
    void queueProbe(const ManualDevice &device);
    // Removes the entries of a host from both selectors.
    RemovedChoice removeEntries(const QString &host);

    // Manual devices
    void startManualDevices();
    void loadManualDevices();
    // False when the list could not be written to disk.
    bool saveManualDevices();

    // SDP
    std::optional<Message> readTxSdp(NmosClient::SenderLookup *sender, QString *text);
    std::optional<Message> readRxSdp(NmosClient::ReceiverLookup *receiver, QString *text);
    void showSdp(const QString &caption, const QString &text);

    // Browser window: shows the mDNS browser window, which is made at the first call and then lives
    // to the end of the process.
    void openBrowser();

    // Update check
    void checkForUpdate();

    // About panel
    void createAboutPanel();
    void showAbout();
    void hideAbout();

    NMOSMdnsBrowser *mdns = nullptr;
    NmosClient *nmos = nullptr;
    QSettings *settings = nullptr;
    BrowserWindow *browserWindow = nullptr;
    QList<ManualDevice> manualDevices; // in the order in which they were added
    QSet<QString> discoveredHosts; // never shrinks
    QSet<QString> manualHosts; // whose entries came from probing a manual device
    QComboBox *txCombo = nullptr;
    QComboBox *rxCombo = nullptr;
    LightIndicator *txLight = nullptr;
    LightIndicator *rxLight = nullptr;
    QPushButton *txSdpButton = nullptr;
    QPushButton *rxSdpButton = nullptr;
    QPushButton *addDeviceButton = nullptr;
    QPushButton *removeDeviceButton = nullptr;
    QPushButton *connectButton = nullptr;
    QPushButton *disconnectButton = nullptr;
    QPushButton *openBrowserButton = nullptr;
    QPushButton *aboutButton = nullptr;
    ProductAdRotator *adRotator = nullptr;
    QFrame *aboutPanel = nullptr;
    IntakeQueue *intakes = nullptr;
};
