#include "discovery/BrowserWindow.h"

#include "discovery/ServiceModel.h"
#include "net/Utf8.h"

#include <QAction>
#include <QCheckBox>
#include <QClipboard>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLineEdit>
#include <QListView>
#include <QListWidget>
#include <QPushButton>
#include <QSortFilterProxyModel>
#include <QSplitter>
#include <QTableWidget>
#include <QVBoxLayout>

#include <algorithm>

namespace {

const char allTypes[] = "_services._dns-sd._udp.local.";

// setModel() does not delete the selection model that it replaces.
void setModel(QAbstractItemView *view, QAbstractItemModel *model)
{
    const QItemSelectionModel *const replaced = view->selectionModel();
    view->setModel(model);
    delete replaced;
}

// A line for each row, tabs between its cells: what spreadsheets and editors expect.
QString selectedText(const QTableWidget *table)
{
    QModelIndexList cells = table->selectionModel()->selectedIndexes();
    std::sort(cells.begin(), cells.end());
    QString text;
    for (int i = 0; i < cells.size(); ++i) {
        if (i > 0) {
            const bool sameRow = cells.at(i).row() == cells.at(i - 1).row();
            text += QLatin1Char(sameRow ? '\t' : '\n');
        }
        text += cells.at(i).data().toString();
    }
    return text;
}

// A list view copies its current row by itself; a table would copy no more than one cell.
void makeCopyable(QTableWidget *table)
{
    auto *copy = new QAction(table);
    copy->setShortcuts(QKeySequence::Copy);
    copy->setShortcutContext(Qt::WidgetShortcut);
    table->addAction(copy);
    QObject::connect(copy, &QAction::triggered, table, [table] {
        if (table->selectionModel()->hasSelection()) {
            QGuiApplication::clipboard()->setText(selectedText(table));
        }
    });
}

// A read-only cell.
QTableWidgetItem *newCell(const QByteArray &text)
{
    auto *cell = new QTableWidgetItem(utf8Text(text));
    cell->setFlags(cell->flags() & ~Qt::ItemIsEditable);
    return cell;
}

} // namespace

BrowserWindow::BrowserWindow()
    : proxy(new QSortFilterProxyModel(this))
{
    setWindowTitle(tr("mDNS Browser"));
    resize(640, 480);
    auto *rows = new QVBoxLayout(this);
    // Keyboard focus moves in the order in which the widgets are made.
    rows->addLayout(buildControls());
    rows->addLayout(buildPanes());
}

BrowserWindow::~BrowserWindow()
{
    // As a child the resolver would outlive the members, and with them the server.
    delete resolver;
    serviceList->setModel(nullptr);
    model.reset();
}

QLayout *BrowserWindow::buildControls()
{
    typeEdit = new QLineEdit(tr("_nmos-node._tcp.local."), this);
    typeEdit->setAccessibleName(tr("Service type or filter"));
    auto *anyBox = new QCheckBox(tr("Any"), this);
    anyBox->setAccessibleName(tr("Any service type"));
    // The window's only button: Qt makes it the default one, which Enter presses.
    browseButton = new QPushButton(tr("Browse"), this);

    connect(anyBox, &QCheckBox::toggled, this, &BrowserWindow::onToggled);
    connect(browseButton, &QPushButton::clicked, this, &BrowserWindow::onClicked);
    connect(typeEdit, &QLineEdit::textChanged, this, &BrowserWindow::onServiceFilterChanged);

    auto *row = new QHBoxLayout;
    row->addWidget(typeEdit, 1);
    row->addWidget(anyBox);
    row->addWidget(browseButton);
    return row;
}

QLayout *BrowserWindow::buildPanes()
{
    auto *columns = new QSplitter(Qt::Horizontal, this);
    serviceList = new QListView(columns);
    serviceList->setAccessibleName(tr("Services"));
    auto *details = new QSplitter(Qt::Vertical, columns);
    addressList = new QListWidget(details);
    addressList->setAccessibleName(tr("Addresses"));
    attributeTable = new QTableWidget(details);
    attributeTable->setAccessibleName(tr("Attributes"));
    attributeTable->setSelectionBehavior(QAbstractItemView::SelectRows);
    // The arrow keys reach every cell; Tab has to lead out of the table again.
    attributeTable->setTabKeyNavigation(false);
    makeCopyable(attributeTable);

    auto *row = new QHBoxLayout;
    row->addWidget(columns);
    return row;
}

void BrowserWindow::onToggled(bool checked)
{
    if (checked) {
        typeEdit->clear();
    } else {
        typeEdit->setText(tr("_nmos-node._tcp.local."));
        proxy->setFilterFixedString(QString());
    }
    // Set last: leaving "Any" sets a filter through setText(), which the line above clears.
    anyMode = checked;
}

void BrowserWindow::onClicked()
{
    if (model) {
        setModel(serviceList, nullptr);
        model.reset();
        clearAttributes();
    }
    model = std::make_unique<ServiceModel>(
        &server, anyMode ? QByteArray(allTypes) : typeEdit->text().toUtf8());
    proxy->setSourceModel(model.get());
    proxy->setSortCaseSensitivity(Qt::CaseInsensitive);
    proxy->setDynamicSortFilter(true);
    setModel(serviceList, proxy);
    proxy->sort(0, Qt::AscendingOrder);
    connect(serviceList->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &BrowserWindow::onSelectionChanged);
}

void BrowserWindow::onSelectionChanged(const QItemSelection &selected, const QItemSelection &)
{
    addressList->clear();
    clearAttributes();
    delete resolver;
    resolver = nullptr;
    if (selected.isEmpty()) {
        return;
    }
    const QModelIndex index = proxy->mapToSource(selected.constFirst().topLeft());
    const auto service = model->data(index, Qt::UserRole).value<QMdnsEngine::Service>();
    showAttributes(service.attributes());
    auto *const found = new MdnsResolver(&server, service.hostname(), nullptr, this);
    connect(found, &MdnsResolver::resolved, this,
            [this](const QHostAddress &address) { addressList->addItem(address.toString()); });
    resolver = found;
}

void BrowserWindow::onServiceFilterChanged(const QString &filter)
{
    if (anyMode) {
        proxy->setFilterFixedString(filter);
    }
}

void BrowserWindow::showAttributes(const QMap<QByteArray, QByteArray> &attributes)
{
    attributeTable->setRowCount(attributes.size());
    attributeTable->setColumnCount(2);
    attributeTable->setHorizontalHeaderLabels({tr("Key"), tr("Value")});
    attributeTable->horizontalHeader()->setStretchLastSection(true);
    attributeTable->verticalHeader()->setVisible(false);
    int row = 0;
    for (auto it = attributes.cbegin(); it != attributes.cend(); ++it, ++row) {
        attributeTable->setItem(row, 0, newCell(it.key()));
        attributeTable->setItem(row, 1, newCell(it.value()));
    }
}

void BrowserWindow::clearAttributes()
{
    attributeTable->clear();
    attributeTable->setColumnCount(0);
    // Rows without columns are invisible but still scroll.
    attributeTable->setRowCount(0);
}
