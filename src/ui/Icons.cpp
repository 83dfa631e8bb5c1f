#include "ui/Icons.h"

#include <QApplication>
#include <QFile>
#include <QIconEngine>
#include <QPainter>
#include <QPalette>
#include <QSvgRenderer>
#include <cmath>

namespace qm {

namespace {
QString bundledPath(const QString& name) {
    return QStringLiteral(":/quillmark/fallback-icons/") + name + QStringLiteral(".svg");
}

QString symbolicName(const QString& name) {
    return name + QStringLiteral("-symbolic");
}

// Draws the icon's shape in one colour: symbolic theme icons and the bundled drawings are
// single-colour art, so the tint replaces the colour and keeps the coverage.
void paintTinted(QPainter& painter, const QString& name, const QRect& pixels, const QColor& tint) {
    QImage shape(pixels.size(), QImage::Format_ARGB32_Premultiplied);
    shape.fill(Qt::transparent);
    {
        QPainter p(&shape);
        p.setRenderHint(QPainter::Antialiasing);
        if (QIcon::hasThemeIcon(symbolicName(name))) {
            p.drawPixmap(0, 0, QIcon::fromTheme(symbolicName(name)).pixmap(pixels.size()));
        } else {
            QSvgRenderer renderer(bundledPath(name));
            if (renderer.isValid())
                renderer.render(&p, QRectF(QPointF(0, 0), QSizeF(pixels.size())));
        }
        p.setCompositionMode(QPainter::CompositionMode_SourceIn);
        p.fillRect(shape.rect(), tint);
    }
    painter.drawImage(pixels.topLeft(), shape);
}

// An icon that paints itself tinted at whatever size and scale it is asked for. Without a
// colour it takes the palette's text colour when painted, so it follows the theme.
class TintedEngine final : public QIconEngine {
public:
    TintedEngine(QString name, QColor color)
        : m_name(std::move(name))
        , m_color(color) {}

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State) override {
        QColor c =
            m_color.isValid() ? m_color : QApplication::palette().color(QPalette::WindowText);
        if (mode == QIcon::Disabled)
            c.setAlphaF(0.35f);
        const qreal ratio = painter->device() ? painter->device()->devicePixelRatioF() : 1.0;
        const int side = std::min(rect.width(), rect.height());
        const QRectF box(rect.x() + (rect.width() - side) / 2.0,
                         rect.y() + (rect.height() - side) / 2.0, side, side);
        painter->drawImage(box, renderIcon(m_name, c, box.size(), ratio));
    }
    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
        return scaledPixmap(size, mode, state, 1.0);
    }
    QPixmap scaledPixmap(const QSize& size, QIcon::Mode mode, QIcon::State state,
                         qreal scale) override {
        QPixmap pm(size * scale);
        pm.fill(Qt::transparent);
        {
            QPainter p(&pm);
            paint(&p, QRect(QPoint(0, 0), size * scale), mode, state);
        }
        pm.setDevicePixelRatio(scale);
        return pm;
    }
    QIconEngine* clone() const override { return new TintedEngine(m_name, m_color); }
    QString iconName() override { return m_name; }

private:
    QString m_name;
    QColor m_color;
};
} // namespace

bool hasBundledIcon(const QString& name) {
    return !name.isEmpty() && QFile::exists(bundledPath(name));
}

bool hasIcon(const QString& name) {
    return hasBundledIcon(name) || (!name.isEmpty() && QIcon::hasThemeIcon(symbolicName(name)));
}

QIcon themedIcon(const QString& name) {
    const QIcon bundled = hasBundledIcon(name) ? QIcon(new TintedEngine(name, {})) : QIcon();
    return QIcon::fromTheme(name, bundled);
}

QIcon tintedIcon(const QString& name, const QColor& color) {
    return hasIcon(name) ? QIcon(new TintedEngine(name, color)) : QIcon();
}

QImage renderIcon(const QString& name, const QColor& tint, QSizeF size, qreal devicePixelRatio) {
    if (!hasIcon(name) || size.isEmpty())
        return {};
    const QSize pixels(int(std::ceil(size.width() * devicePixelRatio)),
                       int(std::ceil(size.height() * devicePixelRatio)));
    QImage image(pixels, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    {
        QPainter painter(&image);
        paintTinted(painter, name, image.rect(), tint);
    }
    image.setDevicePixelRatio(devicePixelRatio);
    return image;
}

void paintIcon(QPainter& painter, const QString& name, const QRectF& box, const QColor& tint) {
    const qreal ratio = painter.device() ? painter.device()->devicePixelRatioF() : 1.0;
    const double side = std::min(box.width(), box.height());
    const QRectF square(box.center() - QPointF(side, side) / 2, QSizeF(side, side));
    painter.drawImage(square, renderIcon(name, tint, square.size(), ratio));
}

} // namespace qm
