#include "MainWindow.h"

#include "Identity.h"
#include "discovery/BrowserWindow.h"
#include "discovery/NMOSMdnsBrowser.h"
#include "net/NestedWait.h"
#include "nmos/IntakeQueue.h"
#include "nmos/NodeEndpoint.h"
#include "widgets/BusyCursor.h"
#include "widgets/LightIndicator.h"
#include "widgets/MessageBox.h"
#include "widgets/ProductAdRotator.h"
#include "widgets/Selector.h"

#include <QApplication>
#include <QCloseEvent>
#include <QComboBox>
#include <QFrame>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSettings>
#include <QVBoxLayout>

namespace {

void registerRecords()
{
    qRegisterMetaType<NmosClient::SenderConnection>("NmosClient::SenderConnection");
    qRegisterMetaType<NmosClient::ReceiverConnection>("NmosClient::ReceiverConnection");
    qRegisterMetaType<NmosClient::SenderConnection>("SenderConnection");
    qRegisterMetaType<NmosClient::ReceiverConnection>("ReceiverConnection");
}

// Makes the selectors of both rows begin at the same place.
void alignTitles(const QWidget *first, const QWidget *second)
{
    auto *one = first->findChild<QLabel *>();
    auto *other = second->findChild<QLabel *>();
    const int width = qMax(one->sizeHint().width(), other->sizeHint().width());
    one->setMinimumWidth(width);
    other->setMinimumWidth(width);
}

} // namespace

MainWindow::MainWindow(QWidget *parent)
    : QMainWindow(parent)
    , nmos(new NmosClient(this))
    , settings(new QSettings(Identity::organisation(), Identity::application(), this))
    , intakes(new IntakeQueue(this))
{
    checkForUpdate();
    registerRecords();
    createAboutPanel();
    setCentralWidget(buildCentralWidget());
    setWindowTitle(Identity::application() + QStringLiteral(" - ") + Identity::webDomain());
    checkTx();
    checkRx();
    connectCommands();
    // main() has set it. A program that makes this window without main() gets it here: layout and
    // style sheet are made for it.
    QApplication::setStyle(QStringLiteral("Fusion"));
    startDiscovery();
    startManualDevices();
}

MainWindow::~MainWindow()
{
    Closing::over();
    if (mdns) {
        mdns->stop();
        delete mdns;
    }
    delete aboutPanel;
}

void MainWindow::closeEvent(QCloseEvent *event)
{
    QMainWindow::closeEvent(event);
    if (event->isAccepted()) {
        mdns->stop();
        Closing::begin();
    }
}

QWidget *MainWindow::buildCentralWidget()
{
    // The keyboard focus follows the order in which the widgets are made, not the layout.
    auto *central = new QWidget(this);
    QWidget *txRow = buildNodeRow(QStringLiteral("Transmitter IP"), txCombo, txLight, txSdpButton);
    QWidget *rxRow = buildNodeRow(QStringLiteral("Receiver IP"), rxCombo, rxLight, rxSdpButton);
    alignTitles(txRow, rxRow);

    auto *buttons = new QWidget(central);
    connectButton = new QPushButton(QStringLiteral("Connect (Tx->Rx)"), buttons);
    disconnectButton = new QPushButton(QStringLiteral("Disconnect Rx"), buttons);
    aboutButton = new QPushButton(QStringLiteral("About"), buttons);
    openBrowserButton = new QPushButton(QStringLiteral("Browse"), buttons);
    addDeviceButton = new QPushButton(QStringLiteral("Add Device"), buttons);
    removeDeviceButton = new QPushButton(QStringLiteral("Remove Device"), buttons);

    auto *buttonLayout = new QHBoxLayout(buttons);
    buttonLayout->setContentsMargins(0, 0, 0, 0);
    buttonLayout->setSpacing(8);
    buttonLayout->addWidget(addDeviceButton);
    buttonLayout->addWidget(removeDeviceButton);
    buttonLayout->addStretch(1);
    buttonLayout->addWidget(connectButton);
    buttonLayout->addWidget(disconnectButton);
    buttonLayout->addStretch(1);
    buttonLayout->addWidget(openBrowserButton);
    buttonLayout->addWidget(aboutButton);

    auto *layout = new QVBoxLayout(central);
    layout->setContentsMargins(16, 16, 16, 16);
    layout->setSpacing(12);
    layout->addWidget(txRow);
    layout->addWidget(rxRow);
    layout->addSpacing(8);
    layout->addWidget(buttons);
    layout->addStretch(1);
    adRotator = new ProductAdRotator(central);
    layout->addWidget(adRotator);
    return central;
}

QWidget *MainWindow::buildNodeRow(const QString &title, QComboBox *&combo, LightIndicator *&light,
                                  QPushButton *&sdpButton)
{
    auto *row = new QWidget(this);
    auto *label = new QLabel(title, row);
    combo = new QComboBox(row);
    new Selector(combo, QStringLiteral("e.g. 10.0.0.2"));
    combo->setMinimumWidth(660);
    light = new LightIndicator(row);
    sdpButton = new QPushButton(QStringLiteral("Show SDP\u2026"), row);

    // Screen readers distinguish the rows by these names.
    label->setBuddy(combo);
    combo->setAccessibleName(title);
    light->setAccessibleName(title + QStringLiteral(" status"));
    sdpButton->setAccessibleName(title + QStringLiteral(": show SDP"));

    auto *layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(8);
    layout->addWidget(label);
    layout->addWidget(combo, 1);
    layout->addWidget(light);
    layout->addWidget(sdpButton);
    return row;
}

void MainWindow::connectCommands()
{
    connect(aboutButton, &QPushButton::clicked, this, &MainWindow::showAbout);
    connect(openBrowserButton, &QPushButton::clicked, this, &MainWindow::openBrowser);
    connect(addDeviceButton, &QPushButton::clicked, this, &MainWindow::doAddDevice);
    connect(removeDeviceButton, &QPushButton::clicked, this, &MainWindow::doRemoveDevice);
    connect(txCombo, &QComboBox::editTextChanged, this, &MainWindow::checkTx);
    connect(txCombo, qOverload<int>(&QComboBox::activated), this, &MainWindow::checkTx);
    connect(rxCombo, &QComboBox::editTextChanged, this, &MainWindow::checkRx);
    connect(rxCombo, qOverload<int>(&QComboBox::activated), this, &MainWindow::checkRx);
    connect(txSdpButton, &QPushButton::clicked, this, &MainWindow::showTxSdp);
    connect(rxSdpButton, &QPushButton::clicked, this, &MainWindow::showRxSdp);
    connect(connectButton, &QPushButton::clicked, this, &MainWindow::doConnect);
    connect(disconnectButton, &QPushButton::clicked, this, &MainWindow::doDisconnect);
}

void MainWindow::checkTx()
{
    check(txCombo, txLight, &NmosClient::hasSenders, QStringLiteral("lastTxIp"));
}

void MainWindow::checkRx()
{
    check(rxCombo, rxLight, &NmosClient::hasReceivers, QStringLiteral("lastRxIp"));
}

void MainWindow::check(QComboBox *combo, LightIndicator *light, NodeProbe probe,
                       const QString &settingsKey)
{
    const QString text = combo->currentText().trimmed();
    bool ok = false;
    if (!text.isEmpty()) {
        const QString host = selectedHost(combo).section(QLatin1Char(' '), 0, 0);
        ok = (nmos->*probe)(host);
        if (ok) {
            settings->setValue(settingsKey, text);
        }
    }
    // The answer may come late, to a text that has been cleared since.
    light->setOn(ok && !combo->currentText().trimmed().isEmpty());
}

QString MainWindow::selectedId(const QComboBox *combo)
{
    return NodeEndpoint::of(Selector::of(combo)->currentRecord()).id;
}

QString MainWindow::selectedHost(const QComboBox *combo)
{
    const QString host = NodeEndpoint::of(Selector::of(combo)->currentRecord()).host;
    return host.isEmpty() ? combo->currentText().trimmed() : host;
}

bool MainWindow::runCommand(const std::function<std::optional<Message>()> &command)
{
    std::optional<Message> message;
    {
        const BusyCursor busy;
        message = command();
    }
    // While the program closes this shows nothing.
    if (message) {
        showMessage(this, *message);
    }
    return !message;
}

// Enter presses the button that has the focus, as in a dialog and as Space does. (An "auto default"
// button would do so by itself, but again and again while the key is held.)
void MainWindow::keyPressEvent(QKeyEvent *event)
{
    auto *button = qobject_cast<QPushButton *>(focusWidget());
    const bool isEnter = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
    if (button && isEnter && !event->isAutoRepeat()) {
        button->click();
    } else {
        QMainWindow::keyPressEvent(event);
    }
}

void MainWindow::openBrowser()
{
    if (!browserWindow) {
        browserWindow = new BrowserWindow;
    }
    browserWindow->show();
    browserWindow->raise();
    browserWindow->activateWindow();
}
