#include "widgets/ProductAdRotator.h"

#include "Identity.h"

#include <QDesktopServices>
#include <QLinearGradient>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QUrl>

#include <algorithm>

namespace {

constexpr int rotationInterval = 9000; // milliseconds
constexpr int pauseDuration = 60000;

constexpr qreal cornerRadius = 6;
constexpr qreal buttonGap = 4;
constexpr qreal buttonRightMargin = 14;
constexpr qreal buttonBottomMargin = 10;

struct Product {
    const char *name; // also names the page and the picture
    const char *description;
};

// Short words and narrow letters: each sentence fits into one line of a banner of its usual width.
// Two lines fit into its height with few fonts only.
constexpr Product catalogueTable[] = {
    {"RouteLoom",
     "All that a late shift alters, in a single list: try it first, fire it to air at a click, "
     "and if it fails, all is as it was before."},
    {"TickHarbor",
     "Tells at first sight if a clock is still in step, lists all that drift, and calls till "
     "it is right: all before a frame is lost."},
    {"TwinStrand",
     "Tells at first sight if a path of a critical stream fails, lets its twin fill in, and "
     "lists all that is lost till it is repaired."},
    {"EarLattice",
     "All of a facility's audio in a single grid: shift it, split it, trim it, title it, and "
     "it is still clear to a first-time visitor."},
    {"GlassQuilt",
     "A multiviewer that fits itself: let a sender fall on a tile, and its title, its tally "
     "and all its level bars still follow it."},
    {"NodeCensus",
     "A registry that recalls it all: it tells if a device is late, lost or altered, and "
     "lists all that it did since its first start."},
    {"EdgeGantry",
     "Lifts all that is still coaxial in a facility into its fabric, and back: it is slim, it "
     "is silent, and it restarts in a trice."},
    {"PacePrism",
     "Splits a stream into its packets: it tells at first sight if its sender is at fault, or "
     "if it is just a switch that stalls it."},
};

// The gradient is the same in every row, so that one row of it can be laid as a tile: a third of
// the time that a gradient brush takes for the whole area.
void paintShade(QPainter &painter, const QRectF &area)
{
    const QRect pixels = area.toAlignedRect();
    if (pixels.isEmpty()) {
        return;
    }
    QLinearGradient gradient(area.topLeft(), area.topRight());
    gradient.setColorAt(0, QColor(0, 0, 0, 205));
    gradient.setColorAt(0.52, QColor(0, 0, 0, 130));
    gradient.setColorAt(1, QColor(0, 0, 0, 80));

    QImage row(pixels.width(), 1, QImage::Format_ARGB32_Premultiplied);
    row.fill(Qt::transparent);
    QPainter rowPainter(&row);
    rowPainter.setRenderHint(QPainter::Antialiasing);
    rowPainter.translate(-pixels.topLeft());
    rowPainter.fillRect(area, gradient);
    rowPainter.end();

    QBrush tile(row);
    tile.setTransform(QTransform::fromTranslate(pixels.left(), 0));
    painter.fillRect(pixels, tile);
}

// Filling the outline of the stroke looks the same as stroking and takes a quarter of the time.
void paintBorder(QPainter &painter, const QPainterPath &outline)
{
    const QColor colour(255, 255, 255, 60);
    painter.fillPath(QPainterPathStroker(QPen(colour, 1)).createStroke(outline), colour);
}

// A triangle in the middle third of a button, with its tip on the given side.
QPolygonF arrow(const QRectF &button, qreal tip, qreal base)
{
    const qreal inset = 0.28 * button.height();
    return {{QPointF(tip, button.center().y()), QPointF(base, button.top() + inset),
             QPointF(base, button.bottom() - inset)}};
}

void paintArrows(QPainter &painter, const QRectF &previous, const QRectF &next)
{
    const qreal inset = 0.33 * previous.width();
    painter.drawPolygon(arrow(previous, previous.left() + inset, previous.right() - inset));
    painter.drawPolygon(arrow(next, next.right() - inset, next.left() + inset));
}

void paintPauseBars(QPainter &painter, const QRectF &button)
{
    const qreal side = button.width();
    const QSizeF bar(0.14 * side, 0.46 * side);
    const qreal halfGap = 0.06 * side;
    const QPointF centre = button.center();
    const qreal top = centre.y() - bar.height() / 2;
    painter.drawRoundedRect(QRectF(QPointF(centre.x() - halfGap - bar.width(), top), bar), 1, 1);
    painter.drawRoundedRect(QRectF(QPointF(centre.x() + halfGap, top), bar), 1, 1);
}

} // namespace

namespace ProductBanner {

QVector<ProductEntry> catalogue()
{
    const QString site = QStringLiteral("https://") % Identity::webDomain();
    QVector<ProductEntry> entries;
    for (const Product &product : catalogueTable) {
        const QString name = QLatin1String(product.name);
        entries += ProductEntry{Identity::organisation() % QLatin1Char(' ') % name,
                                QLatin1String(product.description),
                                site % QStringLiteral("/products/") % name.toLower(),
                                QStringLiteral(":/adbackgrounds/") % name % QStringLiteral(".png")};
    }
    return entries;
}

Button Geometry::buttonAt(const QPointF &point) const
{
    const auto found = std::find_if(buttons.begin(), buttons.end(), [&point](const QRectF &button) {
        return button.contains(point);
    });
    return static_cast<Button>(found - buttons.begin());
}

Geometry geometryFor(const QRectF &contentsRect)
{
    Geometry geometry;
    const QRectF area = contentsRect.adjusted(1, 1, -1, -1);
    geometry.area = area;

    const qreal side = qBound(18.0, 0.19 * area.height(), 22.0);
    for (int k = 0; k < ButtonCount; ++k) {
        const int after = ButtonCount - 1 - k;
        geometry.buttons[static_cast<std::size_t>(k)] =
            QRectF(area.right() - buttonRightMargin - (after + 1) * side - after * buttonGap,
                   area.bottom() - buttonBottomMargin - side, side, side);
    }

    const qreal textOffset = std::min(0.32 * area.width(), 1.45 * area.height());
    geometry.shade = area.adjusted(textOffset, 0, 0, 0);
    const QRectF text = area.adjusted(textOffset, 11, -20, -10);
    geometry.title = text;
    geometry.description = text.adjusted(0, 31, 0, -23);
    geometry.link = text;
    geometry.link.setTop(text.bottom() - 19);
    geometry.link.setRight(std::min(text.right(), geometry.buttons[PreviousButton].left() - 8));
    return geometry;
}

QRectF pictureRect(const QRectF &area, const QSize &picture)
{
    const QSizeF size = picture.scaled(area.size().toSize(), Qt::KeepAspectRatioByExpanding);
    return {QPointF(area.left(), area.center().y() - size.height() / 2), size};
}

} // namespace ProductBanner

ProductAdRotator::ProductAdRotator(QWidget *parent)
    : QWidget(parent)
{
    setObjectName(QStringLiteral("productAdRotator"));
    setCursor(Qt::PointingHandCursor);
    setMinimumHeight(105);
    setMaximumHeight(132);
    setToolTip(QStringLiteral("Open product information on ") % Identity::webDomain());

    products += ProductBanner::catalogue();

    connect(&rotationTimer, &QTimer::timeout, this, [this] { step(1); });
    connect(&pauseTimer, &QTimer::timeout, this, [this] {
        if (products.size() > 1) {
            rotationTimer.start(rotationInterval);
        }
        update();
    });
    pauseTimer.setSingleShot(true);
    rotationTimer.start(rotationInterval);
}

QSize ProductAdRotator::sizeHint() const
{
    return {900, 104};
}

QSize ProductAdRotator::minimumSizeHint() const
{
    return {420, 92};
}

void ProductAdRotator::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton) {
        QWidget::mousePressEvent(event);
        return;
    }
    const auto geometry = ProductBanner::geometryFor(contentsRect());
    switch (geometry.buttonAt(event->localPos())) {
    case ProductBanner::PreviousButton:
        step(-1);
        restartRotation();
        break;
    case ProductBanner::PauseButton:
        rotationTimer.stop();
        pauseTimer.start(pauseDuration);
        update();
        break;
    case ProductBanner::NextButton:
        step(1);
        restartRotation();
        break;
    case ProductBanner::ButtonCount:
        QDesktopServices::openUrl(QUrl(products.at(currentIndex).link, QUrl::TolerantMode));
        QWidget::mousePressEvent(event);
        return;
    }
    event->accept();
}

void ProductAdRotator::paintEvent(QPaintEvent *)
{
    const auto geometry = ProductBanner::geometryFor(contentsRect());
    QPainter painter(this);
    // Without smoothing, the slightly smaller picture of a low banner would lose whole rows of
    // pixels.
    painter.setRenderHints(QPainter::Antialiasing | QPainter::SmoothPixmapTransform);
    paintBackground(painter, geometry);
    paintTexts(painter, geometry);
    paintButtons(painter, geometry);
}

void ProductAdRotator::step(int entries)
{
    const int count = products.size();
    if (count > 0) {
        currentIndex = (currentIndex + entries + count) % count;
    }
    update();
}

void ProductAdRotator::restartRotation()
{
    // While paused, the rotation waits for the end of the minute.
    if (!pauseTimer.isActive()) {
        rotationTimer.start(rotationInterval);
    }
}

void ProductAdRotator::paintBackground(QPainter &painter,
                                       const ProductBanner::Geometry &geometry) const
{
    QPainterPath outline;
    outline.addRoundedRect(geometry.area, cornerRadius, cornerRadius);

    painter.save();
    painter.setClipPath(outline);
    // The toolkit's pixmap cache makes loading by path on each repaint cheap.
    const QPixmap picture(products.at(currentIndex).image);
    if (picture.isNull()) {
        painter.fillPath(outline, QColor(31, 58, 95));
    } else {
        painter.drawPixmap(ProductBanner::pictureRect(geometry.area, picture.size()), picture,
                           picture.rect());
    }
    paintShade(painter, geometry.shade);
    painter.restore();

    paintBorder(painter, outline);
}

void ProductAdRotator::paintTexts(QPainter &painter, const ProductBanner::Geometry &geometry) const
{
    const ProductEntry &entry = products.at(currentIndex);

    QFont titleFont = font();
    titleFont.setWeight(QFont::Bold);
    titleFont.setPointSize(16);
    painter.setFont(titleFont);
    painter.setPen(Qt::white);
    painter.drawText(geometry.title, Qt::AlignLeft | Qt::AlignTop, entry.title);

    QFont descriptionFont = font();
    descriptionFont.setPointSize(9);
    painter.setFont(descriptionFont);
    painter.setPen(QColor(235, 241, 248));
    painter.drawText(geometry.description, Qt::AlignLeft | Qt::AlignTop | Qt::TextWordWrap,
                     entry.description);

    QFont linkFont = font();
    linkFont.setPointSize(8);
    linkFont.setUnderline(true);
    painter.setFont(linkFont);
    painter.setPen(QColor(214, 232, 255));
    painter.drawText(geometry.link, Qt::AlignLeft | Qt::AlignVCenter,
                     QStringLiteral("Click anywhere to open product details on ")
                         % Identity::webDomain());
}

void ProductAdRotator::paintButtons(QPainter &painter,
                                    const ProductBanner::Geometry &geometry) const
{
    painter.setBrush(QColor(0, 0, 0, 120));
    painter.setPen(QPen(QColor(255, 255, 255, 110), 1));
    for (const QRectF &button : geometry.buttons) {
        painter.drawRoundedRect(button, 4, 4);
    }
    painter.setPen(Qt::NoPen);
    painter.setBrush(pauseTimer.isActive() ? QColor(255, 255, 255) : QColor(225, 236, 248));
    paintArrows(painter, geometry.buttons[ProductBanner::PreviousButton],
                geometry.buttons[ProductBanner::NextButton]);
    paintPauseBars(painter, geometry.buttons[ProductBanner::PauseButton]);
}
