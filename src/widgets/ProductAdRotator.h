#pragma once

#include <QRectF>
#include <QString>
#include <QTimer>
#include <QVector>
#include <QWidget>

#include <array>

struct ProductEntry {
    QString title;
    QString description; // one sentence that fits into a line of a banner of 900 pixels
    QString link; // https address of the product's page
    QString image; // resource path of a picture of 1920 x 105 pixels
};

// The product table, and where the parts of a banner lie. All lengths are logical pixels.
namespace ProductBanner {

// The eight products in the order in which they are shown.
QVector<ProductEntry> catalogue();

enum Button { PreviousButton, PauseButton, NextButton, ButtonCount };

struct Geometry {
    QRectF area; // all of the banner that is painted
    QRectF shade; // the part of the area that is darkened for the texts
    QRectF title;
    QRectF description;
    QRectF link; // ends before the first button
    std::array<QRectF, ButtonCount> buttons; // squares, in the order of Button

    // The button at a point, its edges included; ButtonCount where there is none.
    Button buttonAt(const QPointF &point) const;
};

// Lays a banner out in the contents rectangle of its widget. Painting and mouse handling both take
// their coordinates from here. A rectangle that is too small for the texts gives empty text
// rectangles, never an error.
Geometry geometryFor(const QRectF &contentsRect);

// Where a picture of this size is drawn, so that it covers the area in its own proportions: at the
// left edge and in the vertical middle. What exceeds the area is for the caller to clip.
QRectF pictureRect(const QRectF &area, const QSize &picture);

} // namespace ProductBanner

// The banner at the bottom of the main window. It shows one product of the maker at a time, takes
// the next one every nine seconds, and has three buttons to step back, to pause for a minute and to
// step forward. A press of the left mouse button anywhere else opens the page of the shown product
// in the desktop's browser; whether that succeeds is not reported.
//
// A background picture that cannot be loaded is replaced by a plain dark blue.
class ProductAdRotator final : public QWidget {
    Q_DISABLE_COPY_MOVE(ProductAdRotator)

public:
    explicit ProductAdRotator(QWidget *parent = nullptr);
    ~ProductAdRotator() override = default;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    friend class ProductAdRotatorTest; // makes timers elapse without waiting for them

    void step(int entries);
    void restartRotation();
    void paintBackground(QPainter &painter, const ProductBanner::Geometry &geometry) const;
    void paintTexts(QPainter &painter, const ProductBanner::Geometry &geometry) const;
    void paintButtons(QPainter &painter, const ProductBanner::Geometry &geometry) const;

    QVector<ProductEntry> products;
    QTimer rotationTimer;
    QTimer pauseTimer; // runs while the rotation is paused
    int currentIndex = 0;
};
