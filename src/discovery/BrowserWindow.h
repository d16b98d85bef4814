#pragma once

#include "discovery/MdnsServer.h"

#include <QDialog>

#include <memory>

class QItemSelection;
class QLineEdit;
class QListView;
class QListWidget;
class QPushButton;
class QSortFilterProxyModel;
class QTableWidget;
class ServiceModel;

namespace QMdnsEngine {
class Resolver;
}

// A modeless window to look at whatever the network announces by DNS-SD (RFC 6763): lists the
// services of one type, or of all, and for the selected one the addresses and the attributes of its
// TXT record. It has an mDNS server of its own, open as long as the window exists, and shares
// nothing with the discovery of nodes. It shows no messages and logs nothing; what does not exist
// or does not answer is an empty list.
//
// The panes show the service as it was when it was selected; later changes of it show when it is
// selected again. "Browse" empties the list and the attributes. The addresses stay, and further
// ones may arrive, until the next selection.
//
// Everything works without a mouse: Enter browses, Escape hides, and the platform's copy shortcut
// copies the current row of a list or the selected rows of attributes, as lines of "key<Tab>value".
class BrowserWindow final : public QDialog {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(BrowserWindow)

public:
    BrowserWindow();
    // Deletes model and resolver before the server they use.
    ~BrowserWindow() override;

private slots:
    void onToggled(bool checked);
    void onClicked();
    void onSelectionChanged(const QItemSelection &selected, const QItemSelection &deselected);
    void onServiceFilterChanged(const QString &filter);

private:
    QLayout *buildControls();
    QLayout *buildPanes();
    void showAttributes(const QMap<QByteArray, QByteArray> &attributes);
    void clearAttributes();

    MdnsServer server;
    std::unique_ptr<ServiceModel> model;
    QLineEdit *typeEdit = nullptr;
    QPushButton *browseButton = nullptr;
    QListView *serviceList = nullptr;
    QSortFilterProxyModel *proxy = nullptr;
    QListWidget *addressList = nullptr;
    QTableWidget *attributeTable = nullptr;
    QMdnsEngine::Resolver *resolver = nullptr;
    bool anyMode = false;
};
