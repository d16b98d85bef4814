#include "support/TestMain.h"
#include "widgets/ProductAdRotator.h"

#include <QDesktopServices>
#include <QImage>
#include <QMouseEvent>
#include <QSet>

#include <cstdlib>
#include <memory>

using namespace ProductBanner;

class ProductAdRotatorTest final : public QObject {
    Q_OBJECT

public slots:
    void recordUrl(const QUrl &url)
    {
        openedUrls += url;
    }

private:
    Geometry geometry() const
    {
        return geometryFor(banner->contentsRect());
    }
    // Whether the banner kept the press for itself.
    bool press(const QPointF &point, Qt::MouseButton mouseButton = Qt::LeftButton)
    {
        QMouseEvent event(QEvent::MouseButtonPress, point, mouseButton, mouseButton,
                          Qt::NoModifier);
        QCoreApplication::sendEvent(banner.get(), &event);
        return event.isAccepted();
    }
    void press(Button button)
    {
        QVERIFY(press(geometry().buttons.at(button).center()));
    }
    static void elapse(QTimer &timer)
    {
        QVERIFY(timer.isActive());
        QTimerEvent event(timer.timerId());
        QCoreApplication::sendEvent(&timer, &event);
    }
    QImage painted() const
    {
        QImage image(banner->size(), QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::magenta);
        banner->render(&image, QPoint(), QRegion(), QWidget::DrawChildren);
        return image;
    }
    // A picture without any pattern, so that what is painted over it can be computed.
    void usePlainPicture(const QColor &colour)
    {
        QImage picture(1920, 105, QImage::Format_ARGB32);
        picture.fill(colour);
        const QString path = directory.filePath(colour.name().mid(1) + QStringLiteral(".png"));
        QVERIFY(picture.save(path));
        banner->products[0].image = path;
    }
    static void comparePixel(const QImage &image, const QPointF &point, const QColor &expected)
    {
        const QColor found = image.pixelColor(int(point.x()), int(point.y()));
        const auto near = [](int left, int right) {
            return std::abs(left - right) <= 3;
        };
        QVERIFY2(near(found.red(), expected.red()) && near(found.green(), expected.green())
                     && near(found.blue(), expected.blue()),
                 qPrintable(found.name() % QStringLiteral(" instead of ") % expected.name()));
    }

    QTemporaryDir directory;
    QVector<QUrl> openedUrls;
    std::unique_ptr<ProductAdRotator> banner;

private slots:
    void init()
    {
        openedUrls.clear();
        QDesktopServices::setUrlHandler(QStringLiteral("https"), this, "recordUrl");
        banner = std::make_unique<ProductAdRotator>();
        banner->resize(900, 105);
    }

    void cleanup()
    {
        QDesktopServices::unsetUrlHandler(QStringLiteral("https"));
        banner.reset();
    }

    void everyProductHasItsTextsAndPicture()
    {
        const auto products = catalogue();
        QCOMPARE(products.size(), 8);
        QSet<QString> distinct;
        for (const ProductEntry &product : products) {
            const QString &text = product.description;
            QVERIFY2(text.size() >= 125 && text.size() <= 150, qPrintable(text));
            QCOMPARE(text.count(QLatin1Char('.')), 1);
            QVERIFY(text.endsWith(QLatin1Char('.')));
            QVERIFY(product.link.startsWith(QLatin1String("https://velmora.example/products/")));
            const QImage picture(product.image);
            QCOMPARE(picture.size(), QSize(1920, 105));
            QCOMPARE(picture.format(), QImage::Format_ARGB32);
            distinct << product.title << product.link << product.image;
        }
        QCOMPARE(distinct.size(), 3 * products.size());
    }

    // DejaVu Sans is the widest of the common fonts, and 900 pixels the width in a new main window.
    void everySentenceFitsIntoOneLineOfAFontATenthLarger()
    {
        QFont font(QStringLiteral("DejaVu Sans"));
        font.setPixelSize(12); // nine points at 96 dots per inch
        const QFontMetricsF metrics(font);
        const QSizeF place = geometry().description.size() / 1.1;
        QVERIFY(metrics.height() <= place.height());
        const auto products = catalogue();
        for (const ProductEntry &product : products) {
            const QString &text = product.description;
            QVERIFY2(metrics.horizontalAdvance(text) <= place.width(), qPrintable(text));
        }
    }

    void layout_data()
    {
        QTest::addColumn<QSizeF>("size");
        QTest::addColumn<QRectF>("firstButton");
        QTest::addColumn<QRectF>("link");
        QTest::addColumn<QRectF>("picture");
        QTest::newRow("the lowest banner has small buttons")
            << QSizeF(900, 105) << QRectF(818.29, 74.43, 19.57, 19.57)
            << QRectF(150.35, 75, 659.94, 19) << QRectF(1, 1, 1883, 103);
        QTest::newRow("the highest banner has the largest buttons")
            << QSizeF(900, 132) << QRectF(811, 99, 22, 22) << QRectF(189.5, 102, 613.5, 19)
            << QRectF(1, 1, 2377, 130);
        QTest::newRow("a narrow banner leaves less room for the emblem")
            << QSizeF(420, 105) << QRectF(338.29, 74.43, 19.57, 19.57)
            << QRectF(134.76, 75, 195.53, 19) << QRectF(1, 1, 1883, 103);
        QTest::newRow("a very wide banner cuts the picture above and below")
            << QSizeF(3842, 105) << QRectF(3760.29, 74.43, 19.57, 19.57)
            << QRectF(150.35, 75, 3601.94, 19) << QRectF(1, -52.5, 3840, 210);
    }

    void layout()
    {
        QFETCH(const QSizeF, size);
        QFETCH(const QRectF, firstButton);
        QFETCH(const QRectF, link);
        QFETCH(const QRectF, picture);
        const Geometry found = geometryFor(QRectF(QPointF(), size));
        QCOMPARE(found.buttons[PreviousButton], firstButton); // fuzzy, as all of QRectF
        QCOMPARE(found.buttons[PauseButton].left(), firstButton.right() + 4);
        QCOMPARE(found.buttons[NextButton].right(), size.width() - 15);
        QCOMPARE(found.link, link);
        QCOMPARE(found.description.bottom(), size.height() - 34);
        QCOMPARE(pictureRect(found.area, QSize(1920, 105)), picture);
    }

    void pressesReachTheButtons_data()
    {
        QTest::addColumn<int>("square");
        QTest::addColumn<QPointF>("place"); // in units of the square's side
        QTest::addColumn<int>("reached");
        QTest::newRow("top left corner of previous") << 0 << QPointF(0, 0) << 0;
        QTest::newRow("bottom right corner of previous") << 0 << QPointF(1, 1) << 0;
        QTest::newRow("bottom edge of pause") << 1 << QPointF(0.5, 1) << 1;
        QTest::newRow("top edge of next") << 2 << QPointF(0.5, 0) << 2;
        QTest::newRow("just left of previous") << 0 << QPointF(-0.001, 0.5) << 3;
        QTest::newRow("gap between pause and next") << 1 << QPointF(1.1, 0.5) << 3;
        QTest::newRow("far from every button") << 0 << QPointF(-10, -1) << 3;
        QTest::newRow("strip around the painted area") << 2 << QPointF(1.74, 0.5) << 3;
    }

    void pressesReachTheButtons()
    {
        QFETCH(const int, square);
        QFETCH(const QPointF, place);
        QFETCH(const int, reached);
        const QRectF button = geometry().buttons.at(static_cast<std::size_t>(square));
        banner->rotationTimer.setInterval(1000000); // so that a restart shows
        const bool kept = press(button.topLeft() + place * button.width());
        QCOMPARE(kept, reached != ButtonCount);
        const int indexes[] = {7, 0, 1, 0};
        QCOMPARE(banner->currentIndex, indexes[reached]);
        QCOMPARE(banner->pauseTimer.isActive(), reached == PauseButton);
        QCOMPARE(banner->rotationTimer.isActive(), reached != PauseButton);
        const bool restarted = banner->rotationTimer.interval() == 9000;
        QCOMPARE(restarted, reached == PreviousButton || reached == NextButton);
        const QVector<QUrl> pages{QUrl(catalogue().at(0).link)};
        QCOMPARE(openedUrls, reached == ButtonCount ? pages : QVector<QUrl>());
    }

    void pressesOfOtherMouseButtonsDoNothing()
    {
        for (const QRectF &button : geometry().buttons) {
            QVERIFY(!press(button.center(), Qt::RightButton));
        }
        QVERIFY(!press(QPointF(300, 50), Qt::RightButton));
        QCOMPARE(banner->currentIndex, 0);
        QVERIFY(!banner->pauseTimer.isActive());
        QVERIFY(openedUrls.isEmpty());
    }

    void steppingBackFromTheFirstShowsTheLast()
    {
        const QImage first = painted();
        press(PreviousButton);
        const QImage last = painted();
        QVERIFY(last != first);
        press(NextButton);
        QCOMPARE(painted(), first);
        for (int i = 0; i < 7; ++i) {
            elapse(banner->rotationTimer);
        }
        QCOMPARE(painted(), last);
        press(QPointF(300, 50));
        QCOMPARE(openedUrls.value(0), QUrl(catalogue().at(7).link));
        elapse(banner->rotationTimer);
        QCOMPARE(painted(), first);
    }

    void pauseEndsAMinuteAfterItsLastPress()
    {
        press(PauseButton);
        banner->pauseTimer.setInterval(1000000);
        press(PauseButton);
        QCOMPARE(banner->pauseTimer.interval(), 60000);
        press(NextButton);
        press(NextButton);
        press(PreviousButton);
        QCOMPARE(banner->currentIndex, 1);
        QVERIFY(!banner->rotationTimer.isActive());
        elapse(banner->pauseTimer);
        QVERIFY(!banner->pauseTimer.isActive());
        QVERIFY(banner->rotationTimer.isActive());
        QCOMPARE(banner->rotationTimer.interval(), 9000);
        QCOMPARE(banner->currentIndex, 1);
    }

    void aSingleProductStaysAfterAPause()
    {
        banner->products.resize(1);
        press(PauseButton);
        elapse(banner->pauseTimer);
        QVERIFY(!banner->rotationTimer.isActive());
    }

    void theShadeBeginsBesideTheEmblem()
    {
        usePlainPicture(Qt::white);
        const QImage image = painted();
        const QRectF shade = geometry().shade;
        const qreal y = shade.top() + 4; // above all texts
        comparePixel(image, {1, 1}, Qt::magenta); // outside the round corner
        comparePixel(image, {shade.left() - 2, y}, Qt::white);
        comparePixel(image, {shade.left() + 1, y}, QColor(50, 50, 50));
        comparePixel(image, {shade.left() + 0.52 * shade.width(), y}, QColor(125, 125, 125));
        comparePixel(image, {shade.right() - 7, y}, QColor(175, 175, 175));
    }

    void aMissingPictureLeavesPlainBlueInsideTheBorder()
    {
        banner->products[0].image = QStringLiteral(":/adbackgrounds/none.png");
        const QImage image = painted();
        comparePixel(image, {0, 0}, Qt::magenta);
        comparePixel(image, {1, 1}, Qt::magenta);
        comparePixel(image, {0, 50}, QColor(255, 30, 255)); // the outer half of the border
        comparePixel(image, {1, 50}, QColor(57, 81, 114)); // the inner half
        comparePixel(image, {2, 50}, QColor(31, 58, 95));
    }

    void iconsAreWhiteWhilePaused()
    {
        const auto buttons = geometry().buttons;
        const QPointF centre = buttons[PauseButton].center();
        const qreal toBar = 0.13 * buttons[PauseButton].width();
        const QPointF inIcons[] = {buttons[PreviousButton].center(),
                                   {centre.x() - toBar, centre.y()},
                                   {centre.x() + toBar, centre.y()},
                                   buttons[NextButton].center()};
        for (const QPointF &point : inIcons) {
            comparePixel(painted(), point, QColor(225, 236, 248));
        }
        press(PauseButton);
        for (const QPointF &point : inIcons) {
            comparePixel(painted(), point, Qt::white);
        }
        elapse(banner->pauseTimer);
        comparePixel(painted(), inIcons[0], QColor(225, 236, 248));
    }
};

NODEPATCH_TEST_MAIN(ProductAdRotatorTest)

#include "tst_productadrotator.moc"
