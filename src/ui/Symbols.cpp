#include "ui/Symbols.h"

#include <QFile>
#include <QPainter>
#include <QSvgRenderer>
#include <cmath>

namespace qm {

namespace {
QString symbolPath(QStringView name) {
    return QStringLiteral(":/quillmark/symbols/") + name.toString() + QStringLiteral(".svg");
}
} // namespace

bool hasSymbol(QStringView name) {
    return !name.isEmpty() && QFile::exists(symbolPath(name));
}

QImage renderSymbol(QStringView name, const QColor& tint, QSizeF size, qreal devicePixelRatio) {
    if (!hasSymbol(name) || size.isEmpty())
        return {};
    QSvgRenderer renderer(symbolPath(name));
    if (!renderer.isValid())
        return {};
    const QSize pixels(int(std::ceil(size.width() * devicePixelRatio)),
                       int(std::ceil(size.height() * devicePixelRatio)));
    QImage image(pixels, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    renderer.render(&painter, QRectF(QPointF(0, 0), QSizeF(pixels)));
    // The symbols are drawn in black; the tint replaces the colour and keeps the coverage.
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(image.rect(), tint);
    painter.end();
    image.setDevicePixelRatio(devicePixelRatio);
    return image;
}

} // namespace qm
