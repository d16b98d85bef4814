// Repainting the banner.

#include "Comparison.h"
#include "Identity.h"
#include "Rows.h"
#include "widgets/ProductAdRotator.h"

#include <QImage>
#include <QPainter>

namespace {

// The banner's picture and texts, and nothing else.
class PlainBanner final : public QWidget {
    Q_DISABLE_COPY_MOVE(PlainBanner)

public:
    PlainBanner() = default;

protected:
    void paintEvent(QPaintEvent *) override
    {
        const auto geometry = ProductBanner::geometryFor(contentsRect());
        QPainter painter(this);
        painter.setRenderHints(QPainter::Antialiasing | QPainter::SmoothPixmapTransform);
        const QPixmap picture(product.image);
        painter.drawPixmap(ProductBanner::pictureRect(geometry.area, picture.size()), picture,
                           picture.rect());
        painter.setPen(Qt::white);
        draw(painter, 16, QFont::Bold, false, geometry.title, Qt::AlignTop, product.title);
        draw(painter, 9, QFont::Normal, false, geometry.description,
             Qt::AlignTop | Qt::TextWordWrap, product.description);
        draw(painter, 8, QFont::Normal, true, geometry.link, Qt::AlignVCenter,
             QStringLiteral("Click anywhere to open product details on ") + Identity::webDomain());
    }

private:
    void draw(QPainter &painter, int size, QFont::Weight weight, bool underline,
              const QRectF &place, int flags, const QString &text)
    {
        QFont used = font();
        used.setPointSize(size);
        used.setWeight(weight);
        used.setUnderline(underline);
        painter.setFont(used);
        painter.drawText(place, flags | Qt::AlignLeft, text);
    }

    const ProductEntry product = ProductBanner::catalogue().constFirst();
};

// Milliseconds for a hundred repaints into memory.
double repaint(QWidget &widget, QImage *image)
{
    return Comparison::timed([&] {
        for (int i = 0; i < 100; ++i) {
            widget.render(image);
        }
    });
}

Comparison::Result measure(benchmark::State &state, const QSize &size)
{
    ProductAdRotator banner;
    PlainBanner plain;
    QImage image(size, QImage::Format_RGB32);
    for (QWidget *widget : {static_cast<QWidget *>(&banner), static_cast<QWidget *>(&plain)}) {
        widget->resize(size);
        widget->setAttribute(Qt::WA_OpaquePaintEvent);
    }
    return Comparison::compare(
        state, [&] { return repaint(banner, &image); }, [&] { return repaint(plain, &image); });
}

} // namespace

void Rows::addBannerRows()
{
    Comparison::addRow(
        {"100 repaints of the banner, 1000 x 105", "picture and texts alone", "ms", 1.5, 31},
        [](auto &state) {
            return measure(state, {1000, 105});
        });
    Comparison::addRow(
        {"100 repaints of the banner, 1920 x 132", "picture and texts alone", "ms", 1.5, 31},
        [](auto &state) {
            return measure(state, {1920, 132});
        });
}
