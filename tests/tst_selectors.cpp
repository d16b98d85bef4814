// The address selectors and their two lists, under mouse and keyboard.

#include "Application.h"
#include "support/TestMain.h"
#include "widgets/Selector.h"

#include <QComboBox>
#include <QHelpEvent>
#include <QLineEdit>
#include <QListView>
#include <QPushButton>
#include <QScreen>
#include <QScrollBar>
#include <QTextDocument>
#include <QTextDocumentFragment>
#include <QToolTip>
#include <QVBoxLayout>
#include <QWheelEvent>

namespace {

// A window with a selector and a button. Mouse and keys go the way of the window system's events:
// a window that takes hold of the mouse gets them.
struct Desk {
    Desk()
    {
        auto *layout = new QVBoxLayout(&window);
        for (QWidget *widget :
             {static_cast<QWidget *>(&selector), static_cast<QWidget *>(&button)}) {
            layout->addWidget(widget);
        }
        layout->addStretch();
        selector.setAccessibleName(QStringLiteral("Node"));
        new Selector(&selector, QStringLiteral("none"));
        window.resize(300, 600);
        window.show();
        QApplication::setActiveWindow(&window);
        selector.setFocus();
        matches = selector.findChild<QListView *>(QStringLiteral("matches"));
    }

    void add(const QStringList &texts)
    {
        QList<Selector::Entry> entries;
        for (const QString &text : texts) {
            entries.append({text, text});
        }
        Selector::of(&selector)->add(entries);
    }

    void remove(const QString &text)
    {
        Selector::of(&selector)->remove([text](const QVariant &record) { return record == text; });
    }

    void type(const QString &text)
    {
        selector.setFocus();
        selector.lineEdit()->selectAll();
        for (const QChar c : text) {
            QTest::keyClick(window.windowHandle(), c.toLatin1());
        }
    }

    void key(Qt::Key key, Qt::KeyboardModifiers modifiers = {})
    {
        QTest::keyClick(window.windowHandle(), key, modifiers);
    }

    // Opens one of the lists, with the rows that hold the letter.
    QListView *open(bool dropDown, char letter)
    {
        if (dropDown) {
            selector.showPopup();
            return qobject_cast<QListView *>(selector.view());
        }
        type(QString(QLatin1Char(letter)));
        return matches;
    }

    QString chosen() const
    {
        return Selector::of(&selector)->currentRecord().toString();
    }

    QWidget window;
    QComboBox selector;
    QPushButton button{QStringLiteral("Go")};
    QListView *matches;
};

void moveTo(QWidget *widget, const QPoint &point)
{
    QTest::mouseMove(widget->window()->windowHandle(), widget->mapTo(widget->window(), point));
    QCoreApplication::processEvents();
}

void click(QWidget *widget, const QPoint &point)
{
    QTest::mouseClick(widget->window()->windowHandle(), Qt::LeftButton, {},
                      widget->mapTo(widget->window(), point));
}

void turnWheel(QWidget *widget, int angle)
{
    const QPoint centre = widget->rect().center();
    QWheelEvent event(centre, widget->mapToGlobal(centre), {}, {0, angle}, Qt::NoButton, {},
                      Qt::NoScrollPhase, false);
    QCoreApplication::sendEvent(widget, &event);
}

// The texts of the rows that can be seen, with their places.
QStringList seen(const QListView *list)
{
    QStringList rows;
    const int height = list->viewport()->height();
    for (int y = 0; y < height; ++y) {
        const QModelIndex index = list->indexAt({5, y});
        if (index.isValid()
            && (rows.isEmpty() || !rows.constLast().startsWith(index.data().toString()))) {
            rows.append(QStringLiteral("%1 at %2").arg(index.data().toString()).arg(y));
        }
    }
    return rows;
}

QPoint placeOf(const QListView *list, const QString &text)
{
    const int height = list->viewport()->height();
    for (int y = 2; y < height; ++y) {
        if (list->indexAt({5, y}).data() == text) {
            return {5, y};
        }
    }
    qFatal("not to be seen: %s", qPrintable(text));
}

QStringList cameras(int first, int last)
{
    QStringList texts;
    for (int i = first; i <= last; ++i) {
        texts.append(QStringLiteral("Camera %1").arg(i));
    }
    return texts;
}

} // namespace

Q_DECLARE_METATYPE(std::function<void(Desk &)>)

class TestSelectors final : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void offersMatchesWithoutWriting();
    void disregardsTheWheel();
    void theFirstClickBesideCounts_data();
    void theFirstClickBesideCounts();
    void closesTheMatches_data();
    void closesTheMatches();
    void rowsHoldStill_data();
    void rowsHoldStill();
    void growsWhenOpenedAgain_data();
    void growsWhenOpenedAgain();
    void whatHasGoneCannotBePicked_data();
    void whatHasGoneCannotBePicked();
    void keysNeverPassOnFromAnEarlierChoice_data();
    void keysNeverPassOnFromAnEarlierChoice();
    void showsLongEntries();
    void tellsAChoiceThatIsCut();
    void namesItsFieldToAssistiveTechnology();
};

void TestSelectors::initTestCase()
{
    Application::setIdentity();
    Application::setAppearance();
}

void TestSelectors::offersMatchesWithoutWriting()
{
    Desk desk;
    desk.add({QStringLiteral("Cam 1 (10.0.0.25:80-A)"), QStringLiteral("Cam 2 (10.0.0.3:80-B)"),
              QStringLiteral("Grader")});
    desk.type(QStringLiteral("10.0.0.2"));
    QCOMPARE(desk.selector.currentText(), QStringLiteral("10.0.0.2"));
    QVERIFY(desk.matches->isVisible());
    QCOMPARE(desk.matches->model()->rowCount(), 1);

    // Enter picks nothing that was not gone to; entries that come meanwhile are offered with the
    // next key.
    desk.key(Qt::Key_Return);
    QCOMPARE(desk.selector.currentText(), QStringLiteral("10.0.0.2"));
    desk.add({QStringLiteral("Cam 3 (10.0.0.251:80-C)"), QStringLiteral("Cam 4 (10.0.0.4:80-D)")});
    desk.key(Qt::Key_5);
    QCOMPARE(desk.matches->model()->rowCount(), 2);
    QSignalSpy activated(&desk.selector, qOverload<int>(&QComboBox::activated));
    desk.key(Qt::Key_Down);
    QCOMPARE(desk.selector.currentText(), QStringLiteral("10.0.0.25"));
    desk.key(Qt::Key_Return);
    QCOMPARE(desk.chosen(), QStringLiteral("Cam 1 (10.0.0.25:80-A)"));
    QCOMPARE(activated.size(), 1);
    QVERIFY(!desk.matches->isVisible());

    // Leaving the field with a text that an entry only contains chooses nothing.
    desk.type(QStringLiteral("cam 2"));
    QCOMPARE(desk.matches->model()->rowCount(), 1);
    desk.button.setFocus();
    QCOMPARE(desk.selector.currentText(), QStringLiteral("cam 2"));
    QCOMPARE(desk.chosen(), QString());
}

void TestSelectors::disregardsTheWheel()
{
    Desk desk;
    desk.add(cameras(10, 60));
    desk.selector.setCurrentIndex(7);
    QSignalSpy changed(&desk.selector, &QComboBox::editTextChanged);
    QSignalSpy activated(&desk.selector, qOverload<int>(&QComboBox::activated));
    for (QWidget *focused :
         {static_cast<QWidget *>(&desk.selector), static_cast<QWidget *>(&desk.button)}) {
        focused->setFocus();
        turnWheel(desk.selector.lineEdit(), -120);
        turnWheel(&desk.selector, 120);
    }
    QVERIFY(changed.isEmpty() && activated.isEmpty());

    for (const bool dropDown : {true, false}) {
        const QListView *list = desk.open(dropDown, 'C');
        const int before = list->verticalScrollBar()->value();
        turnWheel(list->viewport(), -120);
        QVERIFY(list->verticalScrollBar()->value() > before);
        desk.key(Qt::Key_Escape);
        desk.selector.hidePopup();
    }
}

void TestSelectors::theFirstClickBesideCounts_data()
{
    QTest::addColumn<bool>("onButton");
    QTest::newRow("on a button") << true;
    QTest::newRow("into the field") << false;
}

void TestSelectors::theFirstClickBesideCounts()
{
    QFETCH(const bool, onButton);
    Desk desk;
    desk.add(cameras(1, 1));
    desk.button.move(0, 400);
    desk.type(QStringLiteral("cam"));
    QVERIFY(desk.matches->isVisible());
    QSignalSpy clicked(&desk.button, &QPushButton::clicked);
    QWidget *target = onButton ? static_cast<QWidget *>(&desk.button) : desk.selector.lineEdit();
    click(target, {2, 5});
    QCOMPARE(clicked.size(), onButton ? 1 : 0);
    QCOMPARE(desk.selector.lineEdit()->cursorPosition(), onButton ? 3 : 0);
    QVERIFY(!desk.matches->isVisible());
    QCOMPARE(desk.selector.currentText(), QStringLiteral("cam"));
}

void TestSelectors::closesTheMatches_data()
{
    QTest::addColumn<std::function<void(Desk &)>>("act");
    const auto row = [](const char *name, const std::function<void(Desk &)> &act) {
        QTest::newRow(name) << act;
    };
    row("Escape", [](Desk &desk) { desk.key(Qt::Key_Escape); });
    row("an emptied field", [](Desk &desk) { desk.type(QStringLiteral("\b")); });
    row("text that no entry holds", [](Desk &desk) { desk.type(QStringLiteral("x")); });
    row("another focus", [](Desk &desk) { desk.key(Qt::Key_Tab); });
    row("a moved window", [](Desk &desk) { desk.window.move(desk.window.pos() + QPoint(9, 9)); });
    row("a hidden window", [](Desk &desk) { desk.window.hide(); });
    row("another window", [](Desk &) { QApplication::setActiveWindow(nullptr); });
    row("the drop-down", [](Desk &desk) { desk.key(Qt::Key_F4); });
}

void TestSelectors::closesTheMatches()
{
    QFETCH(const std::function<void(Desk &)>, act);
    Desk desk;
    desk.add(cameras(1, 3));
    desk.type(QStringLiteral("c"));
    QVERIFY(desk.matches->isVisible());
    act(desk);
    QTRY_VERIFY(!desk.matches->isVisible());
    QCOMPARE(desk.selector.currentIndex(), -1);
}

void TestSelectors::rowsHoldStill_data()
{
    QTest::addColumn<bool>("dropDown");
    QTest::addColumn<int>("scrolled");
    QTest::newRow("of the drop-down") << true << 0;
    QTest::newRow("of the drop-down, scrolled") << true << 10;
    QTest::newRow("of the matches") << false << 0;
    QTest::newRow("of the matches, scrolled") << false << 10;
}

void TestSelectors::rowsHoldStill()
{
    QFETCH(const bool, dropDown);
    QFETCH(const int, scrolled);
    Desk desk;
    desk.add(cameras(20, 59));
    QListView *list = desk.open(dropDown, 'C');
    list->verticalScrollBar()->setValue(scrolled);
    const QStringList before = seen(list);
    QVERIFY(before.size() >= 15 && before.size() <= 20);
    const QString wanted = QStringLiteral("Camera %1").arg(25 + scrolled);
    moveTo(list->viewport(), placeOf(list, wanted));

    desk.add(cameras(10, 19) + cameras(60, 69) + QStringList{QStringLiteral("Camera 25b")});
    desk.remove(QStringLiteral("Camera 24"));
    desk.remove(QStringLiteral("Camera 36"));
    QCoreApplication::processEvents();
    QCOMPARE(seen(list), before);
    // The program has them all at once.
    QVERIFY(Selector::of(&desk.selector)->find(QStringLiteral("Camera 25b")) > 0);
    QCOMPARE(Selector::of(&desk.selector)->find(QStringLiteral("Camera 24")), -1);

    click(list->viewport(), placeOf(list, wanted));
    QCOMPARE(desk.chosen(), wanted);
    QVERIFY(!list->isVisible());
    QTRY_COMPARE(desk.selector.count(), 59);
    desk.open(dropDown, 'C');
    QCOMPARE(list->model()->rowCount(), 59);
    list->scrollToTop();
    QVERIFY(seen(list).constFirst().startsWith(QStringLiteral("Camera 10")));
    QVERIFY(seen(list).filter(QStringLiteral("Camera 24")).isEmpty());
}

void TestSelectors::growsWhenOpenedAgain_data()
{
    QTest::addColumn<bool>("dropDown");
    QTest::newRow("the drop-down") << true;
    QTest::newRow("the matches") << false;
}

void TestSelectors::growsWhenOpenedAgain()
{
    QFETCH(const bool, dropDown);
    Desk desk;
    desk.add(cameras(50, 50));
    const QListView *list = desk.open(dropDown, 'C');
    QCOMPARE(seen(list).size(), 1);
    desk.add(cameras(10, 43));
    QCoreApplication::processEvents();
    QCOMPARE(seen(list).size(), 1);
    desk.selector.hidePopup();
    QCoreApplication::processEvents();
    desk.open(dropDown, 'C');
    QVERIFY(seen(list).size() >= 15 && seen(list).size() <= 20);
}

void TestSelectors::whatHasGoneCannotBePicked_data()
{
    growsWhenOpenedAgain_data();
}

void TestSelectors::whatHasGoneCannotBePicked()
{
    QFETCH(const bool, dropDown);
    const QString gone = QStringLiteral("Camera 3");
    Desk desk;
    desk.add(cameras(1, 5));
    desk.selector.setCurrentIndex(dropDown ? 2 : -1);
    QListView *list = desk.open(dropDown, 'C');
    moveTo(list->viewport(), placeOf(list, QStringLiteral("Camera 2")));
    desk.remove(gone);
    QCOMPARE(desk.selector.currentText(), dropDown ? QString() : QStringLiteral("C"));
    moveTo(list->viewport(), placeOf(list, gone));
    click(list->viewport(), placeOf(list, gone));
    list->setCurrentIndex(list->model()->index(2, 0));
    QTest::keyClick(list->window()->windowHandle(), Qt::Key_Return);
    QCOMPARE(desk.selector.currentIndex(), -1);

    // It comes back under the same text while the list is still open.
    desk.open(dropDown, 'C');
    desk.remove(QStringLiteral("Camera 4"));
    desk.add({QStringLiteral("Camera 4")});
    click(list->viewport(), placeOf(list, QStringLiteral("Camera 4")));
    QCOMPARE(desk.chosen(), QStringLiteral("Camera 4"));
    QTRY_COMPARE(desk.selector.count(), 4);
    QCOMPARE(desk.chosen(), QStringLiteral("Camera 4"));
}

void TestSelectors::keysNeverPassOnFromAnEarlierChoice_data()
{
    QTest::addColumn<int>("key");
    QTest::addColumn<bool>("emptied");
    QTest::newRow("Down") << int(Qt::Key_Down) << false;
    QTest::newRow("Up") << int(Qt::Key_Up) << false;
    QTest::newRow("Page Down") << int(Qt::Key_PageDown) << false;
    QTest::newRow("Down in an emptied field") << int(Qt::Key_Down) << true;
}

void TestSelectors::keysNeverPassOnFromAnEarlierChoice()
{
    QFETCH(const int, key);
    QFETCH(const bool, emptied);
    Desk desk;
    desk.add(cameras(1, 5));
    desk.selector.setCurrentIndex(2);
    desk.type(QStringLiteral("4"));
    if (emptied) {
        desk.key(Qt::Key_Backspace);
    } else {
        desk.key(Qt::Key_Escape);
    }
    QVERIFY(!desk.matches->isVisible());
    desk.key(Qt::Key(key));
    QVERIFY(desk.matches->isVisible());
    QCOMPARE(desk.matches->model()->rowCount(), emptied ? 5 : 1);
    QCOMPARE(desk.selector.currentText(), emptied ? QString() : QStringLiteral("4"));
    // With an entry chosen, the arrow keys go on from it.
    desk.key(Qt::Key_Down);
    desk.key(Qt::Key_Return);
    QVERIFY(!desk.chosen().isEmpty());
    const int row = desk.selector.currentIndex();
    desk.key(Qt::Key_Down);
    QCOMPARE(desk.selector.currentIndex(), row + 1);
}

void TestSelectors::showsLongEntries()
{
    Desk desk;
    const QString longest =
        QStringLiteral("Studio A Camera 1 Main Output (192.0.2.11:8080-Video Sender 1 of 7)");
    desk.add(cameras(10, 39) + QStringList{longest});
    for (const bool dropDown : {true, false}) {
        const QListView *list = desk.open(dropDown, 'A');
        const int width = list->fontMetrics().horizontalAdvance(longest);
        QVERIFY(width > desk.selector.width());
        QVERIFY(list->viewport()->width() >= width);
        QVERIFY(list->viewport()->width() < width + 100);
        desk.key(Qt::Key_Escape);
        desk.selector.hidePopup();
    }
    // One that is too long for the screen is elided within it.
    desk.add({QString(2000, QLatin1Char('a'))});
    for (const bool dropDown : {true, false}) {
        const QListView *list = desk.open(dropDown, 'a');
        QVERIFY(desk.window.screen()->geometry().contains(list->window()->geometry()));
        QCOMPARE(list->textElideMode(), Qt::ElideMiddle);
        QCOMPARE(list->horizontalScrollBar()->maximum(), 0);
        desk.key(Qt::Key_Escape);
        desk.selector.hidePopup();
    }
}

void TestSelectors::tellsAChoiceThatIsCut()
{
    Desk desk;
    const QString fits = QStringLiteral("Camera 1");
    const QString cut = QStringLiteral("<b>Studio</b> A & B: ") + QString(60, QLatin1Char('x'));
    desk.add({fits, cut});
    const auto tip = [&desk](const QString &entry) {
        desk.selector.setCurrentIndex(Selector::of(&desk.selector)->find(entry));
        QHelpEvent event(QEvent::ToolTip, {5, 5}, desk.selector.mapToGlobal({5, 5}));
        QCoreApplication::sendEvent(desk.selector.lineEdit(), &event);
        return QToolTip::text();
    };
    QCOMPARE(tip(fits), QString());
    // Letter by letter: the text is a node's.
    const QString shown = tip(cut);
    QVERIFY(Qt::mightBeRichText(shown));
    QCOMPARE(QTextDocumentFragment::fromHtml(shown).toPlainText(), cut);
    desk.selector.setEditText(cut + QLatin1Char('y'));
    QHelpEvent event(QEvent::ToolTip, {5, 5}, desk.selector.mapToGlobal({5, 5}));
    QToolTip::hideText();
    QCoreApplication::sendEvent(desk.selector.lineEdit(), &event);
    QTRY_COMPARE(QToolTip::text(), QString());
}

void TestSelectors::namesItsFieldToAssistiveTechnology()
{
    const Desk desk;
    QCOMPARE(desk.selector.lineEdit()->accessibleName(), QStringLiteral("Node"));
}

NODEPATCH_TEST_MAIN(TestSelectors)
#include "tst_selectors.moc"
