// A keystroke in a selector with very many entries.

#include "Comparison.h"
#include "Rows.h"
#include "widgets/Selector.h"

#include <QAbstractItemView>
#include <QApplication>
#include <QComboBox>
#include <QCompleter>
#include <QElapsedTimer>
#include <QKeyEvent>
#include <QLineEdit>
#include <QVBoxLayout>

#include <algorithm>
#include <vector>

namespace {

constexpr int entryCount = 32000;

// All of them hold the letter that is typed.
QString entryText(int index)
{
    return QStringLiteral("Studio A Camera %1 Video (10.20.%2.%3:8080-Output %4)")
        .arg(index, 5, 10, QLatin1Char('0'))
        .arg(index / 250)
        .arg(index % 250)
        .arg(index % 16);
}

// Types into a combo box and times the list of matches, whatever widget shows it: a list view in a
// window of its own.
class Typist final : public QObject {
    Q_DISABLE_COPY_MOVE(Typist)

public:
    explicit Typist(QComboBox *theSelector)
        : selector(theSelector)
    {
        qApp->installEventFilter(this);
    }

    // The milliseconds from a keystroke in the empty field until the list that opens is painted.
    // Leaves the field empty and the list closed.
    double openList()
    {
        list = nullptr;
        painted = 0;
        clock.start();
        press(Qt::Key_O, QStringLiteral("o"));
        Comparison::waitUntil([this] { return painted != 0; });
        if (list->model()->rowCount() != selector->count()) {
            qFatal("not all entries match");
        }
        press(Qt::Key_Backspace, {});
        Comparison::waitUntil([this] { return !list->isVisible(); });
        QCoreApplication::processEvents();
        return static_cast<double>(painted) / 1e6;
    }

    bool eventFilter(QObject *object, QEvent *event) override
    {
        if (event->type() == QEvent::Paint && clock.isValid()) {
            auto *view = qobject_cast<QAbstractItemView *>(object->parent());
            if (view && view->isWindow() && painted == 0) {
                list = view;
                // Qt paints all widgets of a window and shows them before the next event.
                QMetaObject::invokeMethod(this, &Typist::noteTime, Qt::QueuedConnection);
            }
        }
        return false;
    }

private:
    void press(int key, const QString &text)
    {
        for (const QEvent::Type type : {QEvent::KeyPress, QEvent::KeyRelease}) {
            QKeyEvent event(type, key, Qt::NoModifier, text);
            QCoreApplication::sendEvent(selector->lineEdit(), &event);
        }
    }

    void noteTime()
    {
        if (painted == 0) {
            painted = clock.nsecsElapsed();
        }
    }

    QComboBox *selector;
    QAbstractItemView *list = nullptr;
    QElapsedTimer clock;
    qint64 painted = 0; // nanoseconds after the keystroke; 0 before
};

// A selector of the program, and a combo box with the completer that Qt provides for the purpose.
struct Selectors {
    Selectors()
    {
        new Selector(&selector, QStringLiteral("Choose"));
        QList<Selector::Entry> entries;
        QStringList texts;
        for (int i = 0; i < entryCount; ++i) {
            texts.append(entryText(i));
            entries.append({texts.constLast(), i});
        }
        Selector::of(&selector)->add(entries);

        plain.setEditable(true);
        plain.setInsertPolicy(QComboBox::NoInsert);
        plain.addItems(texts);
        plain.setCurrentIndex(-1);
        auto *completer = new QCompleter(plain.model(), &plain);
        completer->setFilterMode(Qt::MatchContains);
        completer->setCaseSensitivity(Qt::CaseInsensitive);
        plain.setCompleter(completer);

        auto *layout = new QVBoxLayout(&window);
        layout->addWidget(&selector);
        layout->addWidget(&plain);
        window.resize(1000, 200);
        window.show();
        window.activateWindow();
        selector.setFocus();
        // The list would close when the window becomes active.
        Comparison::waitUntil([this] { return selector.hasFocus(); });
    }

    QWidget window;
    QComboBox selector{&window};
    QComboBox plain{&window};
};

Comparison::Result besideCompleter(benchmark::State &state)
{
    Selectors both;
    Typist program(&both.selector);
    Typist qt(&both.plain);
    return Comparison::compare(
        state, [&program] { return program.openList(); }, [&qt] { return qt.openList(); });
}

Comparison::Result afterAnEntryHasCome(benchmark::State &state)
{
    Selectors both;
    Typist program(&both.selector);
    program.openList();
    std::vector<double> times;
    for ([[maybe_unused]] auto run : state) {
        Selector::of(&both.selector)->add({{entryText(both.selector.count()), {}}});
        times.push_back(program.openList());
        state.SetIterationTime(times.back() / 1000);
    }
    std::sort(times.begin(), times.end());
    Comparison::Result result;
    result.figure = times.at(times.size() / 2);
    result.remark = QStringLiteral("the median of %1 keystrokes, the longest %2 ms")
                        .arg(QString::number(times.size()), QString::number(times.back(), 'f', 1));
    return result;
}

} // namespace

void Rows::addSelectorRows()
{
    Comparison::addRow({"A keystroke that 32,000 entries match, until their list is painted",
                        "QComboBox with a QCompleter that looks anywhere", "ms", 1, 15},
                       besideCompleter);
    Comparison::addRow({"The same right after another entry has come", "", "ms", 16.7, 31},
                       afterAnEntryHasCome);
}
