#pragma once

#include "editor/model/Annotation.h"

#include <QFont>
#include <QImage>
#include <QList>
#include <QPointF>
#include <QRect>
#include <QRectF>
#include <functional>

class QPainter;
class QPaintDevice;

namespace qm {

// Draws annotations in image-pixel coordinates onto any QPainter. The export and the editor
// canvas both draw through here, so on-screen and exported marks look alike; the canvas sets a
// world transform on its painter for zoom and scroll.
class AnnotationRenderer {
public:
    // Draws one mark (pixelate marks draw nothing here; see drawPixelation).
    static void draw(QPainter& painter, const Annotation& annotation);

    // Shows `pixelated` (the document's pixelated image, same size as the capture) inside the
    // mark's rect, widened to whole pixels so no original pixel survives at its edges.
    static void drawPixelation(QPainter& painter, const QImage& pixelated,
                               const Annotation& annotation);

    // Every mark in list order over whatever the painter already shows, with all pixelate
    // rects first so pixelation always lies beneath the other marks. `pixelated` may be null
    // when no mark pixelates. A mark whose id is `skip` is left out (e.g. the text being typed).
    static void drawMarks(QPainter& painter, const QImage* pixelated,
                          const QList<Annotation>& annotations, const QUuid& skip = {});

    // The filled arrow outline: a shaft tapering from a thin tail to a thicker neck, then the
    // head. Empty for arrows of length 4 or less, else exactly 7 points.
    static QList<QPointF> arrowPolygon(QPointF start, QPointF end, double lineWidth);

    // The semibold system font at `pixelSize` image pixels on `device` (which sets the DPI).
    static QFont textFont(double pixelSize, const QPaintDevice* device);
    // The rect a text mark's string fills, from the frame's top-left corner: as wide as its
    // longest line, or, once the user has set a width, that width and the wrapped height.
    // A null `device` measures as an image does (the export).
    static QRectF textRect(const Annotation::Text& text, const QPaintDevice* device = nullptr);

    // The image on a gradient backdrop with `style.padding` around it, rounded corners and an
    // optional shadow. The result is (width + 2 padding) × (height + 2 padding).
    static QImage applyBackground(const QImage& image, const BackgroundStyle& style);
    // The same for the `sourceRect` part of `source`, with `paintOver` drawing on it (in
    // source coordinates) before its corners are rounded; used to export without making an
    // intermediate full-size image.
    static QImage applyBackground(const QImage& source, const QRect& sourceRect,
                                  const BackgroundStyle& style,
                                  const std::function<void(QPainter&)>& paintOver);
};

} // namespace qm
