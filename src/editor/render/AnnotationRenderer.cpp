#include "editor/render/AnnotationRenderer.h"

#include <QFontDatabase>
#include <QFontMetricsF>
#include <QLinearGradient>
#include <QPaintDevice>
#include <QPainter>
#include <QPainterPath>
#include <QRegion>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <vector>

namespace qm {

namespace {

int textFlags(const Annotation::Text& text) {
    return (text.wrapsAtWidth ? Qt::TextWordWrap : 0) | Qt::AlignLeft | Qt::AlignTop;
}

// Images measure type alike whatever their size; one stands in when no device is given.
const QPaintDevice* measuringDevice(const QPaintDevice* device) {
    static const QImage probe(1, 1, QImage::Format_ARGB32_Premultiplied);
    return device ? device : &probe;
}

QPainterPath polylinePath(const QList<QPointF>& points) {
    QPainterPath path(points.first());
    for (qsizetype i = 1; i < points.size(); ++i)
        path.lineTo(points[i]);
    return path;
}

void strokePath(QPainter& painter, const QPainterPath& path, const QColor& color, double width) {
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(color, width, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter.drawPath(path);
}

void drawText(QPainter& painter, const Annotation& a, const Annotation::Text& text) {
    const QRectF rect = AnnotationRenderer::textRect(text, painter.device());
    const double fs = text.fontSize;
    if (a.textBackground) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(a.color);
        painter.drawRoundedRect(rect.adjusted(-0.35 * fs, -0.2 * fs, 0.35 * fs, 0.2 * fs), 0.3 * fs,
                                0.3 * fs);
    }
    painter.setFont(AnnotationRenderer::textFont(fs, painter.device()));
    painter.setPen(a.textBackground ? Annotation::contrastingTextColor(a.color) : a.color);
    painter.drawText(rect, textFlags(text), text.string);
}

void drawStep(QPainter& painter, const Annotation& a, const Annotation::Step& step) {
    const double r = step.radius;
    const QRectF circle(step.center.x() - r, step.center.y() - r, 2 * r, 2 * r);
    painter.setPen(Qt::NoPen);
    painter.setBrush(a.color);
    painter.drawEllipse(circle);

    const double inset = 0.04 * r;
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(Qt::white, std::max(0.08 * r, 1.5)));
    painter.drawEllipse(circle.adjusted(inset, inset, -inset, -inset));

    QFont font = AnnotationRenderer::textFont(1.05 * r, painter.device());
    font.setWeight(QFont::Bold);
    painter.setFont(font);
    painter.setPen(Qt::white);
    const QString label = QString::number(step.number);
    const QSizeF size = QFontMetricsF(font, painter.device()).size(Qt::TextSingleLine, label);
    painter.drawText(QRectF(step.center - QPointF(size.width(), size.height()) / 2, size),
                     Qt::AlignLeft | Qt::AlignTop | Qt::TextDontClip, label);
}

// Three passes of a running-sum box blur approximate a Gaussian of the given sigma.
void blurAlpha(QImage& mask, double sigma) {
    const int radius = std::max(1, int(std::lround(sigma)));
    const int w = mask.width(), h = mask.height();
    std::vector<uchar> line(size_t(std::max(w, h)));
    const auto pass = [&](uchar* data, int count, qsizetype stride) {
        for (int i = 0; i < count; ++i)
            line[size_t(i)] = data[i * stride];
        const int window = 2 * radius + 1;
        int sum = 0;
        for (int i = -radius; i <= radius; ++i)
            sum += line[size_t(std::clamp(i, 0, count - 1))];
        for (int i = 0; i < count; ++i) {
            data[i * stride] = uchar(sum / window);
            sum += line[size_t(std::min(i + radius + 1, count - 1))];
            sum -= line[size_t(std::max(i - radius, 0))];
        }
    };
    for (int iteration = 0; iteration < 3; ++iteration) {
        for (int y = 0; y < h; ++y)
            pass(mask.scanLine(y), w, 1);
        uchar* bits = mask.bits();
        for (int x = 0; x < w; ++x)
            pass(bits + x, h, mask.bytesPerLine());
    }
}

} // namespace

void AnnotationRenderer::draw(QPainter& painter, const Annotation& a) {
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::TextAntialiasing);
    painter.setPen(a.color);
    painter.setBrush(a.color);
    const double width = a.lineWidth;
    std::visit(
        [&](const auto& s) {
            using T = std::decay_t<decltype(s)>;
            if constexpr (std::is_same_v<T, Annotation::Rectangle>) {
                painter.setBrush(Qt::NoBrush);
                painter.setPen(QPen(a.color, width, Qt::SolidLine, Qt::SquareCap, Qt::MiterJoin));
                painter.drawRect(s.rect);
            } else if constexpr (std::is_same_v<T, Annotation::Ellipse>) {
                painter.setBrush(Qt::NoBrush);
                painter.setPen(QPen(a.color, width));
                painter.drawEllipse(s.rect);
            } else if constexpr (std::is_same_v<T, Annotation::Arrow>) {
                const QList<QPointF> polygon = arrowPolygon(s.start, s.end, width);
                if (polygon.size() < 3)
                    return;
                painter.setPen(Qt::NoPen);
                painter.drawPolygon(polygon.constData(), int(polygon.size()));
            } else if constexpr (std::is_same_v<T, Annotation::Line>) {
                painter.setPen(QPen(a.color, width, Qt::SolidLine, Qt::RoundCap));
                painter.drawLine(s.start, s.end);
            } else if constexpr (std::is_same_v<T, Annotation::Pen>) {
                if (s.points.size() >= 2)
                    strokePath(painter, polylinePath(s.points), a.color, width);
            } else if constexpr (std::is_same_v<T, Annotation::Highlight>) {
                if (s.points.size() < 2)
                    return;
                // One path stroked once: crossings do not darken, text beneath stays readable.
                QColor translucent = a.color;
                translucent.setAlphaF(0.42f);
                strokePath(painter, polylinePath(s.points), translucent, 3.5 * width);
            } else if constexpr (std::is_same_v<T, Annotation::Text>) {
                drawText(painter, a, s);
            } else if constexpr (std::is_same_v<T, Annotation::Step>) {
                drawStep(painter, a, s);
            }
            // Pixelate: drawn beneath everything by drawPixelation.
        },
        a.shape);
    painter.restore();
}

void AnnotationRenderer::drawPixelation(QPainter& painter, const QImage& pixelated,
                                        const Annotation& annotation) {
    const auto* p = annotation.as<Annotation::Pixelate>();
    if (!p)
        return;
    const QRect r = p->rect.normalized().toAlignedRect().intersected(pixelated.rect());
    if (r.isEmpty())
        return;
    painter.save();
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.setOpacity(1.0);
    painter.drawImage(QRectF(r), pixelated, QRectF(r));
    painter.restore();
}

void AnnotationRenderer::drawMarks(QPainter& painter, const QImage* pixelated,
                                   const QList<Annotation>& annotations, const QUuid& skip) {
    if (pixelated)
        for (const Annotation& a : annotations)
            if (a.id() != skip)
                drawPixelation(painter, *pixelated, a);
    for (const Annotation& a : annotations)
        if (a.id() != skip)
            draw(painter, a);
}

QList<QPointF> AnnotationRenderer::arrowPolygon(QPointF start, QPointF end, double w) {
    const QPointF delta = end - start;
    const double length = std::hypot(delta.x(), delta.y());
    if (length <= 4)
        return {};
    const QPointF u = delta / length;
    const QPointF n(-u.y(), u.x());
    const double tailHalf = std::max(0.22 * w, 0.5);
    const double neckHalf = std::max(0.95 * w, 1.0);
    const double headHalf = std::max(2.2 * w, 3.0);
    const double headLength = std::min(std::max(3.2 * w, 10.0), 0.6 * length);
    const QPointF base = end - u * headLength;
    return {start + n * tailHalf, base + n * neckHalf, base + n * headHalf, end,
            base - n * headHalf,  base - n * neckHalf, start - n * tailHalf};
}

QFont AnnotationRenderer::textFont(double pixelSize, const QPaintDevice* device) {
    QFont font = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
    font.setWeight(QFont::DemiBold);
    // One image pixel per point: convert through the device's DPI so the glyphs are
    // `pixelSize` image pixels tall on a QImage and on a zoomed canvas alike.
    const int dpi = device ? device->logicalDpiY() : 96;
    font.setPointSizeF(std::max(pixelSize, 0.5) * 72.0 / (dpi > 0 ? dpi : 96));
    return font;
}

QRectF AnnotationRenderer::textRect(const Annotation::Text& text, const QPaintDevice* device) {
    device = measuringDevice(device);
    const QFontMetricsF metrics(textFont(text.fontSize, device), device);
    constexpr double unlimited = std::numeric_limits<int>::max() / 2;
    const double width = text.wrapsAtWidth ? text.frame.width() : unlimited;
    const QRectF measured =
        metrics.boundingRect(QRectF(0, 0, width, unlimited), textFlags(text), text.string);
    // An empty text still shows where typing goes: one line, a little wide.
    const double height = std::max(measured.height(), metrics.height());
    if (text.wrapsAtWidth)
        return QRectF(text.frame.topLeft(),
                      QSizeF(text.frame.width(), std::max(text.frame.height(), height)));
    return QRectF(text.frame.topLeft(),
                  QSizeF(std::max(std::ceil(measured.width()), 0.5 * text.fontSize), height));
}

QImage AnnotationRenderer::applyBackground(const QImage& image, const BackgroundStyle& style) {
    return applyBackground(image, image.rect(), style, {});
}

QImage AnnotationRenderer::applyBackground(const QImage& source, const QRect& sourceRect,
                                           const BackgroundStyle& style,
                                           const std::function<void(QPainter&)>& paintOver) {
    const QRect area = sourceRect.intersected(source.rect());
    const double p = style.padding;
    const double fullWidth = std::trunc(area.width() + 2 * p);
    const double fullHeight = std::trunc(area.height() + 2 * p);
    const bool opaque = !source.hasAlphaChannel();
    // Opaque capture, whole-pixel padding: the marks are painted straight into the canvas, so
    // no second full-size image is made (each costs more in page faults than in painting).
    const bool direct = opaque && p == std::floor(p) && source.format() == QImage::Format_RGB32;
    const auto withMarks = [&] {
        QImage image = source.copy(area);
        if (paintOver) {
            QPainter painter(&image);
            painter.translate(-area.topLeft());
            paintOver(painter);
        }
        return image;
    };
    if (!(fullWidth >= 1 && fullHeight >= 1) || fullWidth > 32767 || fullHeight > 32767)
        return withMarks();
    if (!direct && (paintOver || area != source.rect()))
        return applyBackground(withMarks(), style);

    QImage canvas(int(fullWidth), int(fullHeight),
                  opaque ? QImage::Format_RGB32 : QImage::Format_ARGB32_Premultiplied);
    if (canvas.isNull())
        return withMarks();
    const QRectF bounds(0, 0, fullWidth, fullHeight);
    const QRectF imageRect(p, p, area.width(), area.height());

    // −45°: from the top-left corner to the bottom-right one, spanning the rect's projection.
    QList<QColor> colors = BackgroundPreset::colorsFor(style.presetID);
    if (colors.isEmpty())
        colors = {Qt::black, Qt::black};
    const double half = (fullWidth + fullHeight) / 4;
    const QPointF center = bounds.center();
    QLinearGradient gradient(center - QPointF(half, half), center + QPointF(half, half));
    if (colors.size() == 1) {
        gradient.setColorAt(0, colors.first());
        gradient.setColorAt(1, colors.first());
    } else {
        for (qsizetype i = 0; i < colors.size(); ++i)
            gradient.setColorAt(double(i) / double(colors.size() - 1), colors[i]);
    }
    QPainterPath rounded;
    rounded.addRoundedRect(imageRect, style.cornerRadius, style.cornerRadius);

    // An opaque image hides everything beneath its interior, so the backdrop, shadow and
    // rounded edge are only painted around it and in its corners.
    QRegion around(canvas.rect());
    QList<QRect> corners;
    if (opaque) {
        const QRect inner(
            QPoint(int(std::ceil(p)), int(std::ceil(p))),
            QPoint(int(std::floor(p + area.width())) - 1, int(std::floor(p + area.height())) - 1));
        const double r =
            std::clamp(style.cornerRadius, 0.0, std::min(area.width(), area.height()) / 2.0) + 1;
        QRegion cornerRegion;
        for (const QPointF& c :
             {imageRect.topLeft(), imageRect.topRight() - QPointF(r, 0),
              imageRect.bottomLeft() - QPointF(0, r), imageRect.bottomRight() - QPointF(r, r)}) {
            const QRect square = QRectF(c, QSizeF(r, r)).toAlignedRect().intersected(inner);
            corners << square;
            cornerRegion += square;
        }
        around = around.subtracted(QRegion(inner)).united(cornerRegion);
    }

    // The image itself goes in first when it is copied directly; its corners are kept aside
    // and laid back in through the rounded outline once the backdrop is behind them.
    QList<QImage> cornerPatches;
    if (direct) {
        const int offset = int(p);
        for (int y = 0; y < area.height(); ++y)
            std::memcpy(canvas.scanLine(y + offset) + offset * 4,
                        source.constScanLine(y + area.y()) + area.x() * 4,
                        size_t(area.width()) * 4);
        if (paintOver) {
            QPainter painter(&canvas);
            painter.setClipRect(QRect(offset, offset, area.width(), area.height()));
            painter.translate(QPointF(p, p) - QPointF(area.topLeft()));
            paintOver(painter);
        }
        for (const QRect& c : corners)
            cornerPatches << canvas.copy(c);
    }

    QPainter painter(&canvas);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.setClipRegion(around);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.fillRect(bounds, gradient);
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);

    if (style.shadow && p > 0) {
        // The blur is smooth, so it is computed on a reduced mask and scaled up.
        const double blur = 0.5 * p;
        const double sigma = blur / 2;
        const double scale = std::max(1.0, sigma / 2);
        QImage mask(int(std::ceil(fullWidth / scale)), int(std::ceil(fullHeight / scale)),
                    QImage::Format_Alpha8);
        mask.fill(0);
        {
            QPainter maskPainter(&mask);
            maskPainter.setRenderHint(QPainter::Antialiasing);
            maskPainter.scale(1 / scale, 1 / scale);
            maskPainter.translate(0, 0.06 * p); // downwards on screen
            maskPainter.fillPath(rounded, Qt::black);
        }
        blurAlpha(mask, sigma / scale);
        QImage shadow(mask.size(), QImage::Format_ARGB32_Premultiplied);
        for (int y = 0; y < mask.height(); ++y) {
            const uchar* in = mask.constScanLine(y);
            auto* out = reinterpret_cast<QRgb*>(shadow.scanLine(y));
            for (int x = 0; x < mask.width(); ++x)
                out[x] = qRgba(0, 0, 0, (in[x] * 97 + 127) / 255); // 0.38 × 255 ≈ 97
        }
        painter.drawImage(QRectF(0, 0, mask.width() * scale, mask.height() * scale), shadow);
        // The shape that casts the shadow; only a translucent image lets it show.
        painter.fillPath(rounded, Qt::black);
    }

    painter.setPen(Qt::NoPen);
    if (direct) {
        for (qsizetype i = 0; i < corners.size(); ++i) {
            painter.setClipRect(corners[i]);
            QBrush patch(cornerPatches[i]);
            patch.setTransform(QTransform::fromTranslate(corners[i].x(), corners[i].y()));
            painter.setBrush(patch);
            painter.drawPath(rounded);
        }
        // The straight edges between the corners lie on whole pixels and are already exact.
        painter.end();
        return canvas;
    }
    QBrush texture(source);
    texture.setTransform(QTransform::fromTranslate(p, p));
    painter.setBrush(texture);
    painter.drawPath(rounded);
    if (opaque) {
        // The interior, which the backdrop left alone.
        painter.setClipRegion(QRegion(canvas.rect()).subtracted(around));
        painter.setCompositionMode(QPainter::CompositionMode_Source);
        painter.drawImage(QPointF(p, p), source);
    }
    painter.end();
    return canvas;
}

} // namespace qm
