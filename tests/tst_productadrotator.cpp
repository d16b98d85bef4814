#include "support/EventCounter.h"
#include "support/TestMain.h"
#include "widgets/ProductAdRotator.h"

#include <QDesktopServices>
#include <QImage>
#include <QMouseEvent>
#include <QPainter>
#include <QSet>

#include <functional>
#include <memory>
#include <tuple>

using namespace ProductBanner;

class TestProductAdRotator final : public QObject {
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
    // True when the banner accepted the press.
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
    static void comparePixel(const QImage &image, const QPointF &point, const QColor &expected)
    {
        const QColor found = image.pixelColor(int(point.x()), int(point.y()));
        const int off = qAbs(found.red() - expected.red()) + qAbs(found.green() - expected.green())
            + qAbs(found.blue() - expected.blue());
        QVERIFY2(off <= 6, qPrintable(found.name() % " instead of "_s % expected.name()));
    }

    QVector<QUrl> openedUrls;
    std::unique_ptr<ProductAdRotator> banner;

private slots:
    void init()
    {
        openedUrls.clear();
        QDesktopServices::setUrlHandler("https"_s, this, "recordUrl");
        banner = std::make_unique<ProductAdRotator>();
        banner->resize(900, 105);
    }

    void everyProductHasItsTextsAndPicture()
    {
        const auto products = catalogue();
        QCOMPARE(products.size(), 8);
        // The widest of the common fonts, at nine points of 96 dpi. Others may be a tenth larger.
        QFont font("DejaVu Sans"_s);
        font.setPixelSize(12);
        QSet<QString> distinct;
        for (const ProductEntry &product : products) {
            const QString &text = product.description;
            QVERIFY2(text.size() >= 125 && text.size() <= 150, qPrintable(text));
            QCOMPARE(text.count(QLatin1Char('.')), 1);
            QVERIFY(text.endsWith(QLatin1Char('.')));
            QVERIFY2(1.1 * QFontMetricsF(font).horizontalAdvance(text)
                         <= geometry().description.width(),
                     qPrintable(text));
            QVERIFY(product.link.startsWith(QLatin1String("https://velmora.example/products/")));
            const QImage picture(product.image);
            QCOMPARE(picture.size(), QSize(1920, 105));
            QCOMPARE(picture.format(), QImage::Format_ARGB32);
            distinct << product.title << product.link << product.image;
        }
        QCOMPARE(distinct.size(), 3 * products.size());
    }

    void everyPartFollowsTheSize()
    {
        const struct {
            qreal width;
            QRectF firstButton, link, picture;
        } rows[] = {
            {900, {818.29, 74.43, 19.57, 19.57}, {150.35, 75, 659.94, 19}, {1, 1, 1883, 103}},
            // This one cuts the picture above and below.
            {3842,
             {3760.29, 74.43, 19.57, 19.57},
             {150.35, 75, 3601.94, 19},
             {1, -52.5, 3840, 210}}};
        for (const auto &row : rows) {
            const Geometry found = geometryFor(QRectF(0, 0, row.width, 105));
            QCOMPARE(found.buttons[PreviousButton], row.firstButton); // fuzzy, as all of QRectF
            QCOMPARE(found.buttons[PauseButton].left(), row.firstButton.right() + 4);
            QCOMPARE(found.buttons[NextButton].right(), row.width - 15);
            QCOMPARE(found.link, row.link);
            QCOMPARE(found.description.bottom(), 71);
            QCOMPARE(pictureRect(found.area, QSize(1920, 105)), row.picture);
        }
        QCOMPARE(banner->objectName(), "productAdRotator"_s);
        QCOMPARE(banner->cursor().shape(), Qt::PointingHandCursor);
        QCOMPARE(banner->toolTip(), "Open product information on velmora.example"_s);
        QCOMPARE(banner->minimumHeight(), 105);
        QCOMPARE(banner->maximumHeight(), 132);
        QCOMPARE(banner->sizeHint(), QSize(900, 104));
        QCOMPARE(banner->minimumSizeHint(), QSize(420, 92));
    }

    void pressesReachTheButtons()
    {
        const struct {
            Button square;
            QPointF place; // in units of the square's side
            Button reached;
            int shown; // then
        } rows[] = {{PreviousButton, {1, 1}, PreviousButton, 7},
                    {PauseButton, {0.5, 1}, PauseButton, 7},
                    {NextButton, {0, 0.5}, NextButton, 0},
                    {PreviousButton, {-0.001, 0.5}, ButtonCount, 0},
                    {NextButton, {1.74, 0.5}, ButtonCount, 0}}; // beside the painted area
        const QVector<QUrl> page{QUrl(catalogue().at(0).link)};
        for (const auto &row : rows) {
            openedUrls.clear();
            banner->pauseTimer.stop();
            banner->rotationTimer.start(1000000); // so that a restart shows
            const QRectF button = geometry().buttons.at(row.square);
            const QPointF point = button.topLeft() + row.place * button.width();
            QVERIFY(!press(point, Qt::RightButton)); // does nothing
            QCOMPARE(press(point), row.reached != ButtonCount);
            QCOMPARE(banner->currentIndex, row.shown);
            QCOMPARE(banner->pauseTimer.isActive(), row.reached == PauseButton);
            QCOMPARE(banner->rotationTimer.isActive(), row.reached != PauseButton);
            QCOMPARE(banner->rotationTimer.interval() == 9000,
                     row.reached == PreviousButton || row.reached == NextButton);
            QCOMPARE(openedUrls, row.reached == ButtonCount ? page : QVector<QUrl>());
        }
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
        // Whatever changes what is seen paints it.
        EventCounter<QWidget> paints(banner.get(), QEvent::Paint);
        const auto paintsAfter = [&paints](const std::function<void()> &change) {
            paints.count = 0;
            change();
            QTRY_VERIFY(paints.count > 0);
        };
        paintsAfter([this] { banner->show(); });
        paintsAfter([this] { press(PauseButton); });
        banner->pauseTimer.setInterval(1000000);
        press(PauseButton);
        QCOMPARE(banner->pauseTimer.interval(), 60000);
        paintsAfter([this] { press(NextButton); });
        press(NextButton);
        paintsAfter([this] { press(PreviousButton); });
        QCOMPARE(banner->currentIndex, 1);
        QVERIFY(!banner->rotationTimer.isActive());
        paintsAfter([this] { elapse(banner->pauseTimer); });
        QVERIFY(!banner->pauseTimer.isActive());
        QVERIFY(banner->rotationTimer.isActive());
        QCOMPARE(banner->rotationTimer.interval(), 9000);
        QCOMPARE(banner->currentIndex, 1);
    }

    // On a picture of one colour, so that the colours painted over it can be computed, and on none.
    void paintsShadeAndBorder()
    {
        const QTemporaryDir directory;
        QImage picture(1920, 105, QImage::Format_ARGB32);
        picture.fill(Qt::white);
        banner->products[0].image = directory.filePath("white.png"_s);
        QVERIFY(picture.save(banner->products[0].image));
        QImage image = painted();
        const QRectF shade = geometry().shade;
        const qreal y = shade.top() + 4; // above all texts
        comparePixel(image, {1, 1}, Qt::magenta); // outside the round corner
        comparePixel(image, {shade.left() - 2, y}, Qt::white);
        comparePixel(image, {shade.left() + 1, y}, QColor(50, 50, 50));
        comparePixel(image, {shade.left() + 0.52 * shade.width(), y}, QColor(125, 125, 125));
        comparePixel(image, {shade.right() - 7, y}, QColor(175, 175, 175));
        const QRectF button = geometry().buttons[PreviousButton];
        comparePixel(image, button.topLeft() + QPointF(2, 3), QColor(88, 88, 88));
        comparePixel(image, {button.left(), button.top() + 4}, QColor(154, 154, 154));

        banner->products[0].image = ":/adbackgrounds/none.png"_s;
        image = painted();
        comparePixel(image, {1, 1}, Qt::magenta);
        comparePixel(image, {0, 50}, QColor(255, 30, 255)); // the outer half of the border
        comparePixel(image, {1, 50}, QColor(57, 81, 114)); // the inner half
        comparePixel(image, {2, 50}, QColor(31, 58, 95));
    }

    void writesItsTexts()
    {
        banner->resize(600, 105); // where the description takes two lines
        banner->products[0].image = ":/adbackgrounds/none.png"_s;
        const ProductEntry entry = banner->products.at(0);
        const int top = Qt::AlignLeft | Qt::AlignTop;
        const std::tuple<QRectF, int, int, QColor, QString> lines[] = {
            {geometry().title, top, 16, Qt::white, entry.title},
            {geometry().description, top | Qt::TextWordWrap, 9, {235, 241, 248}, entry.description},
            {geometry().link,
             Qt::AlignLeft | Qt::AlignVCenter,
             8,
             {214, 232, 255},
             "Click anywhere to open product details on velmora.example"_s}};
        const QImage image = painted();
        for (const auto &[place, flags, points, colour, text] : lines) {
            QFont font = banner->font();
            font.setPointSize(points);
            font.setWeight(points == 16 ? QFont::Bold : QFont::Normal);
            font.setUnderline(points == 8);
            QImage wanted(image.size(), image.format());
            wanted.fill(Qt::transparent);
            QPainter painter(&wanted);
            painter.setRenderHint(QPainter::Antialiasing);
            painter.setPen(colour);
            painter.setFont(font);
            painter.drawText(place, flags, text);
            painter.end();
            int wrong = 100; // less one for each pixel that is right
            for (int i = 0; i < image.width() * image.height(); ++i) {
                const QPoint at(i % image.width(), i / image.width());
                const int alpha = qAlpha(wanted.pixel(at));
                const bool isRight = alpha == 255 ? image.pixel(at) == wanted.pixel(at)
                                                  : qGray(image.pixel(at)) > 130;
                wrong += alpha <= 150 ? 0 : isRight ? -1 : 10000;
            }
            QVERIFY2(wrong < 0, qPrintable(text));
        }
    }

    void iconsAreWhiteWhilePaused()
    {
        const auto buttons = geometry().buttons;
        const QPointF centre = buttons[PauseButton].center();
        const qreal toBar = 0.13 * buttons[PauseButton].width();
        // Near the bases of the arrows.
        const QPointF inIcons[] = {buttons[PreviousButton].center() + QPointF(2, 2),
                                   {centre.x() - toBar, centre.y()},
                                   {centre.x() + toBar, centre.y()},
                                   buttons[NextButton].center() + QPointF(-2, 2)};
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

NODEPATCH_TEST_MAIN(TestProductAdRotator)

#include "tst_productadrotator.moc"
