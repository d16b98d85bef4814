#include "support/TestMain.h"
#include "widgets/SdpDialog.h"

#include <QClipboard>
#include <QPushButton>
#include <QTextEdit>

class TestSdpDialog final : public QObject {
    Q_OBJECT

private slots:
    void namesTheSenderInItsTitle();
    void showsAndCopiesWhatWasPassed_data();
    void showsAndCopiesWhatWasPassed();
    void cannotBeEdited();
    void closes();
};

namespace {

QPushButton *button(const QDialog &dialog, const char *text)
{
    const auto buttons = dialog.findChildren<QPushButton *>();
    for (QPushButton *candidate : buttons) {
        if (candidate->text() == QLatin1String(text)) {
            return candidate;
        }
    }
    qFatal("there is no button \"%s\"", text);
}

} // namespace

void TestSdpDialog::namesTheSenderInItsTitle()
{
    const auto titleFor = [](const char *caption) {
        return SdpDialog(QString::fromUtf8(caption), QStringLiteral("v=0"), nullptr).windowTitle();
    };
    QCOMPARE(titleFor(""), QStringLiteral("SDP"));
    QCOMPARE(titleFor("Sender A"), QStringLiteral("SDP \u2022 Sender A"));
    QCOMPARE(titleFor("%1 %2 <b>&amp;"), QStringLiteral("SDP \u2022 %1 %2 <b>&amp;"));
}

void TestSdpDialog::showsAndCopiesWhatWasPassed_data()
{
    QTest::addColumn<QString>("passed");
    QTest::addColumn<QString>("shown");
    const auto row = [](const char *title, const QString &passed) {
        QTest::newRow(title) << passed
                             << QString(passed).replace(QLatin1String("\r\n"), QLatin1String("\n"));
    };
    row("nothing", QString());
    row("lines that end in LF", QStringLiteral("v=0\ns=A\n\n\n"));
    row("lines that end in CR LF", QStringLiteral("v=0\r\ns=A\r\n\n\n\n"));
    row("empty lines only", QStringLiteral("\n\n\n"));
    row("markup", QStringLiteral("<html><b>s=</b>&amp; <img src='x'>\n"));
    row("text that is not Latin", QStringLiteral("s=カメラ \U0001F3A5\tä\n"));
    row("five megabytes of lines", QStringLiteral("a=fmtp:96 width=1920\r\n").repeated(230000));
    row("two thousand characters without a blank", QString(2000, QLatin1Char('x')));
    // Fast only while the view may wrap anywhere: it breaks such a text at no blank.
    row("half a megabyte without a blank", QString(500000, QLatin1Char('x')));
    row("2,001 characters without a blank, among others",
        QStringLiteral("v=0\n") + QString(2001, QLatin1Char('x')) + QStringLiteral(" a"));
}

void TestSdpDialog::showsAndCopiesWhatWasPassed()
{
    QFETCH(const QString, passed);
    QFETCH(const QString, shown);
    SdpDialog dialog(QString(), passed, nullptr);
    dialog.show();
    const auto *const view = dialog.findChild<QTextEdit *>();
    QCOMPARE(view->wordWrapMode() == QTextOption::WrapAnywhere,
             passed.contains(QString(2001, QLatin1Char('x'))));
    QVERIFY(view->toPlainText() == shown);
    QCOMPARE(view->document()->blockCount(), shown.count(QLatin1Char('\n')) + 1);

    QGuiApplication::clipboard()->setText(QStringLiteral("something else"));
    QTest::mouseClick(button(dialog, "Copy SDP"), Qt::LeftButton);
    QVERIFY(QGuiApplication::clipboard()->text() == shown);
    QVERIFY(dialog.isVisible());
}

void TestSdpDialog::cannotBeEdited()
{
    SdpDialog dialog(QString(), QStringLiteral("v=0\n"), nullptr);
    dialog.show();
    auto *const view = dialog.findChild<QTextEdit *>();
    QTRY_VERIFY(view->hasFocus());
    QTest::keyClicks(view, QStringLiteral("x"));
    QTest::keyClick(view, Qt::Key_Delete);
    QCOMPARE(view->toPlainText(), QStringLiteral("v=0\n"));
    QVERIFY(view->textInteractionFlags() & Qt::TextSelectableByMouse);
    QTest::keySequence(view, QKeySequence::SelectAll);
    QTest::keySequence(view, QKeySequence::Copy);
    QCOMPARE(QGuiApplication::clipboard()->text(), QStringLiteral("v=0\n"));
}

void TestSdpDialog::closes()
{
    SdpDialog dialog(QString(), QString(), nullptr);
    dialog.open();
    QTest::mouseClick(button(dialog, "Close"), Qt::LeftButton);
    QVERIFY(!dialog.isVisible());
    QCOMPARE(dialog.result(), static_cast<int>(QDialog::Accepted));
    dialog.open();
    QTest::keyClick(dialog.findChild<QTextEdit *>(), Qt::Key_Escape);
    QVERIFY(!dialog.isVisible());
    QCOMPARE(dialog.result(), static_cast<int>(QDialog::Rejected));
}

NODEPATCH_TEST_MAIN(TestSdpDialog)
#include "tst_sdpdialog.moc"
