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

QString operator""_s(const char *text, std::size_t size)
{
    return QString::fromUtf8(text, static_cast<int>(size));
}

// A window with two selectors and a button. Mouse and keys go the way of the window system's
// events: a window that takes hold of the mouse gets them.
struct Desk {
    Desk()
    {
        auto *layout = new QVBoxLayout(&window);
        for (QWidget *widget : {static_cast<QWidget *>(&selector), static_cast<QWidget *>(&other),
                                static_cast<QWidget *>(&button)}) {
            layout->addWidget(widget);
        }
        layout->addStretch();
        layout->insertSpacing(1, 100);
        selector.setAccessibleName("Node"_s);
        entries = new Selector(&selector, "none"_s);
        new Selector(&other, "none"_s);
        Selector::of(&other)->add({{"Other"_s, {}}});
        window.resize(300, 600);
        window.show();
        QApplication::setActiveWindow(&window);
        selector.setFocus();
        matches = selector.findChild<QListView *>("matches"_s);
    }

    void add(const QStringList &texts)
    {
        QList<Selector::Entry> added;
        for (const QString &text : texts) {
            added.append({text, text});
        }
        entries->add(added);
    }

    // The record that the selector hands over because it was shown.
    QString remove(const QString &text)
    {
        return entries->remove([text](const QVariant &record) { return record == text; })
            .toString();
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
            QCoreApplication::processEvents();
            return qobject_cast<QListView *>(selector.view());
        }
        type(QString(QLatin1Char(letter)));
        return matches;
    }

    void close()
    {
        key(Qt::Key_Escape);
        selector.hidePopup();
        QCoreApplication::processEvents();
    }

    QString chosen() const
    {
        return Selector::of(&selector)->currentRecord().toString();
    }

    QWidget window;
    QComboBox selector;
    QComboBox other;
    QPushButton button{"Go"_s};
    Selector *entries;
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
            rows.append("%1 at %2"_s.arg(index.data().toString()).arg(y));
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
    qFatal("not to be seen: %.99s", qPrintable(text));
}

QImage pictureOf(const QListView *list, int row)
{
    return list->viewport()->grab(list->visualRect(list->model()->index(row, 0))).toImage();
}

// How far to the right of the selector the text begins that a part of it shows.
int inkLeft(const QWidget *part, const QImage &picture, const Desk &desk)
{
    const int middle = picture.height() / 2;
    int x = 2;
    while (x < picture.width() - 1 && picture.pixel(x, middle) == picture.pixel(1, middle)) {
        ++x;
    }
    return x + part->mapToGlobal({0, 0}).x() - desk.selector.mapToGlobal({0, 0}).x();
}

QStringList cameras(int first, int last)
{
    QStringList texts;
    for (int i = first; i <= last; ++i) {
        texts.append("Camera %1"_s.arg(i));
    }
    return texts;
}

void listRows()
{
    QTest::addColumn<bool>("dropDown");
    QTest::newRow("the drop-down") << true;
    QTest::newRow("the matches") << false;
}

} // namespace

Q_DECLARE_METATYPE(std::function<void(Desk &)>)

class TestSelectors final : public QObject {
    Q_OBJECT

private slots:
    void initTestCase()
    {
        Application::setIdentity();
        Application::setAppearance();
    }

    void offersMatchesWithoutWriting()
    {
        Desk desk;
        desk.add({"Cam 1 (10.0.0.25:80-A)"_s, "Cam 2 (10.0.0.3:80-B)"_s, "Grader"_s});
        desk.type("10.0.0.2"_s);
        QCOMPARE(desk.selector.currentText(), "10.0.0.2"_s);
        QVERIFY(desk.matches->isVisible());
        QCOMPARE(desk.matches->model()->rowCount(), 1);

        // Enter picks nothing that was not gone to, nor from a closed list; entries that come
        // meanwhile are offered with the next key.
        desk.key(Qt::Key_Return);
        desk.key(Qt::Key_Down);
        desk.key(Qt::Key_Down);
        desk.key(Qt::Key_Escape);
        desk.key(Qt::Key_Return);
        QCOMPARE(desk.selector.currentText(), "10.0.0.2"_s);
        desk.add({"Cam 3 (10.0.0.251:80-C)"_s, "Cam 4 (10.0.0.4:80-D)"_s});
        desk.key(Qt::Key_5);
        QCOMPARE(desk.matches->model()->rowCount(), 2);
        QSignalSpy activated(&desk.selector, qOverload<int>(&QComboBox::activated));
        desk.key(Qt::Key_Down);
        QCOMPARE(desk.selector.currentText(), "10.0.0.25"_s);
        desk.key(Qt::Key_Return);
        QCOMPARE(desk.chosen(), "Cam 1 (10.0.0.25:80-A)"_s);
        QCOMPARE(activated.size(), 1);
        QVERIFY(!desk.matches->isVisible());

        // Leaving the field with a text that an entry only contains chooses nothing.
        desk.type("cam 2"_s);
        QCOMPARE(desk.matches->model()->rowCount(), 1);
        desk.button.setFocus();
        QCOMPARE(desk.selector.currentText(), "cam 2"_s);
        QCOMPARE(desk.chosen(), QString());
    }

    void disregardsTheWheel()
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
            desk.close();
        }
    }

    void theFirstClickBesideCounts_data()
    {
        QTest::addColumn<QString>("list");
        for (const char *list : {"matches", "drop-down", "drop-down that has grabbed the mouse"}) {
            QTest::newRow(list) << QString::fromLatin1(list);
        }
    }

    void theFirstClickBesideCounts()
    {
        QFETCH(const QString, list);
        Desk desk;
        desk.add(cameras(1, 1));
        desk.type("cam"_s);
        desk.key(Qt::Key_Escape);
        const auto clickBeside = [&](QWidget *target, const QPoint &point) {
            const QListView *open = desk.open(list != "matches"_s, 'c');
            QVERIFY(open->isVisible());
            // The window system may report the press to the window that has grabbed the mouse.
            QWindow *pressed =
                (list.endsWith("mouse"_s) ? open->window() : &desk.window)->windowHandle();
            const QPoint global = target->mapToGlobal(point);
            QTest::mousePress(pressed, Qt::LeftButton, {}, pressed->mapFromGlobal(global));
            QTest::mouseRelease(desk.window.windowHandle(), Qt::LeftButton, {},
                                desk.window.mapFromGlobal(global));
            QVERIFY(!open->isVisible());
        };
        QSignalSpy presses(&desk.button, &QPushButton::pressed);
        QSignalSpy clicks(&desk.button, &QPushButton::clicked);
        clickBeside(&desk.button, {2, 5});
        QCOMPARE(presses.size(), 1);
        QCOMPARE(clicks.size(), 1);
        QVERIFY(desk.button.hasFocus() && !desk.button.isDown());

        clickBeside(desk.selector.lineEdit(), {2, 5});
        QCOMPARE(desk.selector.lineEdit()->cursorPosition(), 0);
        QVERIFY(desk.selector.hasFocus());
        clickBeside(&desk.other, {desk.other.width() - 8, 5});
        QVERIFY(desk.other.view()->isVisible());
        desk.other.hidePopup();
        // The arrow only closes the list that it opened.
        if (list != "matches"_s) {
            clickBeside(&desk.selector, {desk.selector.width() - 8, 5});
        }
        QVERIFY(desk.selector.currentText().startsWith(QLatin1Char('c')));
    }

    void closesTheMatches_data()
    {
        QTest::addColumn<std::function<void(Desk &)>>("act");
        const auto row = [](const char *name, const std::function<void(Desk &)> &act) {
            QTest::newRow(name) << act;
        };
        row("Escape", [](Desk &desk) { desk.key(Qt::Key_Escape); });
        row("an emptied field", [](Desk &desk) { desk.type("\b"_s); });
        row("text that no entry holds", [](Desk &desk) { desk.type("x"_s); });
        row("another focus", [](Desk &desk) { desk.key(Qt::Key_Tab); });
        row("a moved window",
            [](Desk &desk) { desk.window.move(desk.window.pos() + QPoint(9, 9)); });
        row("a hidden window", [](Desk &desk) { desk.window.hide(); });
        row("another window", [](Desk &) { QApplication::setActiveWindow(nullptr); });
        row("the drop-down", [](Desk &desk) { desk.key(Qt::Key_F4); });
        row("the drop-down, with Alt", [](Desk &desk) {
            desk.key(Qt::Key_Down, Qt::AltModifier);
            QVERIFY(desk.selector.view()->isVisible());
        });
    }

    void closesTheMatches()
    {
        QFETCH(const std::function<void(Desk &)>, act);
        Desk desk;
        desk.add(cameras(1, 3));
        desk.type("c"_s);
        QVERIFY(desk.matches->isVisible());
        act(desk);
        QTRY_VERIFY(!desk.matches->isVisible());
        QCOMPARE(desk.selector.currentIndex(), -1);
    }

    void rowsHoldStill_data()
    {
        QTest::addColumn<bool>("dropDown");
        QTest::addColumn<int>("scrolled");
        QTest::newRow("of the drop-down") << true << 0;
        QTest::newRow("of the drop-down, scrolled") << true << 10;
        QTest::newRow("of the matches") << false << 0;
        QTest::newRow("of the matches, scrolled") << false << 10;
    }

    void rowsHoldStill()
    {
        QFETCH(const bool, dropDown);
        QFETCH(const int, scrolled);
        Desk desk;
        desk.add(cameras(20, 59));
        QListView *list = desk.open(dropDown, 'C');
        list->verticalScrollBar()->setValue(scrolled);
        const QStringList before = seen(list);
        QVERIFY(before.size() >= 15 && before.size() <= 20);
        const QString wanted = "Camera %1"_s.arg(25 + scrolled);
        moveTo(list->viewport(), placeOf(list, wanted));

        desk.add(cameras(10, 19) + cameras(60, 69) + QStringList{"Camera 25b"_s});
        desk.remove("Camera 24"_s);
        desk.remove("Camera 36"_s);
        QCoreApplication::processEvents();
        QCOMPARE(seen(list), before);
        // The program has them all at once.
        QVERIFY(desk.entries->find("Camera 25b"_s) > 0);
        QCOMPARE(desk.entries->find("Camera 24"_s), -1);

        click(list->viewport(), placeOf(list, wanted));
        QCOMPARE(desk.chosen(), wanted);
        QVERIFY(!list->isVisible());
        QTRY_COMPARE(desk.selector.count(), 59);
        desk.open(dropDown, 'C');
        QCOMPARE(list->model()->rowCount(), 59);
        list->scrollToTop();
        QVERIFY(seen(list).constFirst().startsWith("Camera 10"_s));
        QVERIFY(seen(list).filter("Camera 24"_s).isEmpty());
    }

    void whatHasGoneCannotBePicked_data()
    {
        listRows();
    }

    void whatHasGoneCannotBePicked()
    {
        QFETCH(const bool, dropDown);
        const QString gone = "Camera 3"_s;
        Desk desk;
        desk.add(cameras(3, 5) + cameras(1, 3));
        desk.selector.setCurrentIndex(dropDown ? 2 : -1);
        QSignalSpy changed(&desk.selector, &QComboBox::editTextChanged);
        QListView *list = desk.open(dropDown, 'C');
        moveTo(list->viewport(), placeOf(list, "Camera 2"_s));
        QCOMPARE(desk.remove(gone), dropDown ? gone : QString());
        QCOMPARE(changed.size(), 1); // by the typing, or by the loss
        QCOMPARE(desk.selector.currentText(), dropDown ? QString() : "C"_s);
        moveTo(list->viewport(), placeOf(list, gone));
        click(list->viewport(), placeOf(list, gone));
        list->setCurrentIndex(list->model()->index(2, 0));
        QTest::keyClick(list->window()->windowHandle(), Qt::Key_Return);
        QCOMPARE(desk.selector.currentIndex(), -1);

        // It comes back under the same text while the list is still open.
        desk.open(dropDown, 'C');
        desk.remove("Camera 4"_s);
        desk.add({"Camera 4"_s});
        click(list->viewport(), placeOf(list, "Camera 4"_s));
        QCOMPARE(desk.chosen(), "Camera 4"_s);
        QTRY_COMPARE(desk.selector.count(), 4);
        QCOMPARE(desk.chosen(), "Camera 4"_s);

        // The list grows when it is opened again.
        desk.open(dropDown, 'C');
        desk.add(cameras(10, 43));
        QCoreApplication::processEvents();
        QCOMPARE(seen(list).size(), 4);
        desk.close();
        desk.open(dropDown, 'C');
        QVERIFY(seen(list).size() >= 15 && seen(list).size() <= 20);
    }

    // Whatever happens to the entry that was chosen before.
    void typedTextStays_data()
    {
        listRows();
    }

    void typedTextStays()
    {
        QFETCH(const bool, dropDown);
        Desk desk;
        desk.add(cameras(1, 5));
        desk.selector.setCurrentIndex(2);
        desk.type("4711"_s);
        QLineEdit *field = desk.selector.lineEdit();
        QSignalSpy changed(&desk.selector, &QComboBox::editTextChanged);
        if (dropDown) {
            desk.selector.showPopup();
        }
        field->setSelection(1, 2);
        for (const char *goes : {"Camera 1", "Camera 3"}) {
            QCOMPARE(desk.remove(QLatin1String(goes)), QString());
        }
        desk.entries->remove([](const QVariant &) { return true; });
        desk.selector.hidePopup();
        QTRY_COMPARE(desk.selector.count(), 0);
        QCOMPARE(desk.selector.currentIndex(), -1);
        QCOMPARE(field->selectedText(), "71"_s);
        QVERIFY(field->isUndoAvailable());
        QCOMPARE(field->text(), "4711"_s);
        QVERIFY(changed.isEmpty());
    }

    void keysNeverPassOnFromAnEarlierChoice_data()
    {
        QTest::addColumn<int>("key");
        QTest::addColumn<bool>("emptied");
        QTest::newRow("Down") << int(Qt::Key_Down) << false;
        QTest::newRow("Up") << int(Qt::Key_Up) << false;
        QTest::newRow("Page Down") << int(Qt::Key_PageDown) << false;
        QTest::newRow("Down in an emptied field") << int(Qt::Key_Down) << true;
    }

    void keysNeverPassOnFromAnEarlierChoice()
    {
        QFETCH(const int, key);
        QFETCH(const bool, emptied);
        Desk desk;
        desk.add(cameras(1, 5));
        desk.selector.setCurrentIndex(2);
        desk.type("4"_s);
        desk.key(emptied ? Qt::Key_Backspace : Qt::Key_Escape);
        QVERIFY(!desk.matches->isVisible());
        desk.key(Qt::Key(key));
        QVERIFY(desk.matches->isVisible());
        QCOMPARE(desk.matches->model()->rowCount(), emptied ? 5 : 1);
        QCOMPARE(desk.selector.currentText(), emptied ? QString() : "4"_s);
        // With an entry chosen, the arrow keys go on from it.
        desk.key(Qt::Key_Down);
        desk.key(Qt::Key_Return);
        QVERIFY(!desk.chosen().isEmpty());
        const int row = desk.selector.currentIndex();
        desk.key(Qt::Key_Down);
        QCOMPARE(desk.selector.currentIndex(), row + 1);
    }

    void showsWholeRowsBesideTheField_data()
    {
        QTest::addColumn<bool>("dropDown");
        QTest::addColumn<int>("top");
        QTest::addColumn<bool>("above");
        for (const bool dropDown : {true, false}) {
            const char *list = dropDown ? "drop-down" : "matches";
            QTest::addRow("%s with room below", list) << dropDown << 0 << false;
            QTest::addRow("%s cut below", list) << dropDown << 200 << false;
            QTest::addRow("%s cut above", list) << dropDown << 300 << true;
            QTest::addRow("%s with room above", list) << dropDown << 548 << true;
        }
    }

    void showsWholeRowsBesideTheField()
    {
        QFETCH(const bool, dropDown);
        QFETCH(const int, top);
        QFETCH(const bool, above);
        const auto restore =
            qScopeGuard([font = QApplication::font()] { QApplication::setFont(font); });
        QApplication::setFont(QFont(QApplication::font().family(), 18));
        Desk desk;
        desk.add(cameras(10, 39));
        desk.window.resize(300, 90);
        desk.window.move(10, top);
        const QListView *list = desk.open(dropDown, 'C');
        const QRect field(desk.selector.mapToGlobal({0, 0}), desk.selector.size());
        const QRect place = list->window()->geometry();
        QVERIFY(desk.window.screen()->geometry().contains(place));
        const int gap = above ? field.top() - place.bottom() : place.top() - field.bottom();
        QVERIFY2(gap == 0 || gap == 1, qPrintable(QString::number(gap)));
        const int row = list->visualRect(list->model()->index(0, 0)).height();
        QCOMPARE(list->viewport()->height() % row, 0);
        QVERIFY(list->viewport()->height() > 6 * row);
    }

    void showsLongEntries_data()
    {
        listRows();
    }

    void showsLongEntries()
    {
        QFETCH(const bool, dropDown);
        Desk desk;
        const QString longest =
            "Studio A Camera 1 Main Output (192.0.2.11:8080-Video Sender 1 of 7)"_s;
        desk.add(cameras(10, 39) + QStringList{longest});
        QListView *list = desk.open(dropDown, 'A');
        const int width = list->fontMetrics().horizontalAdvance(longest);
        QVERIFY(width > desk.selector.width());
        QVERIFY(list->viewport()->width() >= width);
        QVERIFY(list->viewport()->width() < width + 100);
        desk.close();
        // One that is too long for the screen is elided within it, or for a line edit by itself.
        const QString endless(40000, QLatin1Char('a'));
        desk.add({endless});
        desk.window.move(200, 0);
        desk.open(dropDown, 'a');
        const QRect place = list->window()->geometry();
        QCOMPARE(place.left(), desk.selector.mapToGlobal({0, 0}).x());
        QCOMPARE(place.right(), desk.window.screen()->geometry().right());
        QCOMPARE(list->textElideMode(), Qt::ElideMiddle);
        QCOMPARE(list->horizontalScrollBar()->maximum(), 0);
        list->scrollToBottom();
        click(list->viewport(), placeOf(list, endless));
        QCOMPARE(desk.chosen(), endless);

        // All of the texts begin below the field's text, chosen or not.
        desk.close();
        desk.selector.setCurrentIndex(0);
        const QWidget *field = desk.selector.lineEdit();
        const int begin = inkLeft(field, const_cast<QWidget *>(field)->grab().toImage(), desk);
        desk.open(dropDown, 'C');
        QCOMPARE(inkLeft(list->viewport(), pictureOf(list, 0), desk), begin);
        QCOMPARE(inkLeft(list->viewport(), pictureOf(list, 1), desk), begin);
    }

    void tellsApartWhatDiffersInItsBreaks_data()
    {
        listRows();
    }

    void tellsApartWhatDiffersInItsBreaks()
    {
        QFETCH(const bool, dropDown);
        const QStringList texts{
            "Cam\t1"_s,     "Cam\n1"_s,     "Cam\n2"_s,
            "Cam\x01 1"_s,  "Cam\x02 1"_s,  "Cam"_s + QString(40, QLatin1Char('\n')),
            "Cam\u20281"_s, "Cam\u20291"_s, "Cam 1"_s};
        Desk desk;
        desk.add(texts);
        const QListView *list = desk.open(dropDown, 'C');
        QVector<QImage> pictures;
        for (int row = 0; row < texts.size(); ++row) {
            pictures.append(pictureOf(list, row));
            QVERIFY(pictures.constLast().height() < 2 * list->fontMetrics().height());
            QCOMPARE(pictures.indexOf(pictures.constLast()), row);
        }
        click(list->viewport(), placeOf(list, "Cam\n2"_s));
        QCOMPARE(desk.selector.currentText(), "Cam\n2"_s);
        QCOMPARE(desk.chosen(), "Cam\n2"_s);
    }

    void highlightsTheRowUnderThePointer_data()
    {
        listRows();
    }

    void highlightsTheRowUnderThePointer()
    {
        QFETCH(const bool, dropDown);
        Desk desk;
        desk.add(cameras(1, 5));
        const QListView *list = desk.open(dropDown, 'C');
        moveTo(list->viewport(), placeOf(list, "Camera 4"_s));
        const auto background = [list](int row) {
            return pictureOf(list, row).pixelColor(1, 1);
        };
        QTRY_VERIFY(background(3).blue() > background(1).blue() + 50);
        moveTo(list->viewport(), placeOf(list, "Camera 2"_s));
        QTRY_VERIFY(background(1).blue() > background(3).blue() + 50);
        desk.key(Qt::Key_Return);
        QCOMPARE(desk.chosen(), dropDown ? "Camera 2"_s : QString());
    }

    void tellsAChoiceThatIsCut()
    {
        Desk desk;
        const QString fits = "Camera 1"_s;
        const QString cut = "<b>Studio</b> A & B: "_s + QString(60, QLatin1Char('x'));
        desk.add({fits, cut});
        const auto tip = [&desk](const QString &entry) {
            desk.selector.setCurrentIndex(desk.entries->find(entry));
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

    void namesItsFieldToAssistiveTechnology()
    {
        const Desk desk;
        QCOMPARE(desk.selector.lineEdit()->accessibleName(), "Node"_s);
    }
};

NODEPATCH_TEST_MAIN(TestSelectors)
#include "tst_selectors.moc"
