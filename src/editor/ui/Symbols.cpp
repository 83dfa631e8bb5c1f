#include "editor/ui/Symbols.h"

#include <QApplication>
#include <QIconEngine>
#include <QPainter>
#include <QPainterPath>
#include <QPalette>
#include <QPixmap>
#include <cmath>

namespace qm {

namespace {

using DrawFn = void (*)(QPainter&);

void arrowHead(QPainter& p, QPointF tip, QPointF from, double size) {
    const QPointF d = tip - from;
    const double l = std::hypot(d.x(), d.y());
    const QPointF u = d / l, n(-u.y(), u.x());
    QPainterPath head(tip - u * size + n * size * 0.8);
    head.lineTo(tip);
    head.lineTo(tip - u * size - n * size * 0.8);
    p.drawPath(head);
}

// Every symbol is drawn in a 24 × 24 box with the current pen.
void drawNamed(QPainter& p, const QString& n) {
    const QColor c = p.pen().color();
    if (n == QLatin1String("cursorarrow")) {
        QPainterPath a(QPointF(7, 4));
        a.lineTo(7, 19);
        a.lineTo(10.6, 15.6);
        a.lineTo(13.2, 21);
        a.lineTo(15.6, 19.9);
        a.lineTo(13.1, 14.6);
        a.lineTo(18, 14.2);
        a.closeSubpath();
        p.drawPath(a);
    } else if (n == QLatin1String("rectangle")) {
        p.drawRoundedRect(QRectF(3.5, 6, 17, 12), 1.5, 1.5);
    } else if (n == QLatin1String("circle")) {
        p.drawEllipse(QRectF(4, 4, 16, 16));
    } else if (n == QLatin1String("arrow.up.right")) {
        p.drawLine(QPointF(5.5, 18.5), QPointF(18, 6));
        arrowHead(p, QPointF(18.5, 5.5), QPointF(5.5, 18.5), 6);
    } else if (n == QLatin1String("line.diagonal")) {
        p.drawLine(QPointF(5, 19), QPointF(19, 5));
    } else if (n == QLatin1String("scribble.variable")) {
        QPainterPath s(QPointF(3.5, 15));
        s.cubicTo(6, 6, 9, 6, 10, 11);
        s.cubicTo(11, 16, 13, 18, 15, 12);
        s.cubicTo(16.5, 7.5, 19, 8, 20.5, 12);
        p.drawPath(s);
    } else if (n == QLatin1String("highlighter")) {
        QPainterPath body(QPointF(14, 4));
        body.lineTo(20, 10);
        body.lineTo(12, 18);
        body.lineTo(6, 12);
        body.closeSubpath();
        p.drawPath(body);
        QPainterPath tip(QPointF(8, 14));
        tip.lineTo(5.5, 18.5);
        tip.lineTo(8.5, 18.5);
        tip.lineTo(10, 16);
        p.drawPath(tip);
        QColor faint = c;
        faint.setAlphaF(0.45f);
        p.save();
        p.setPen(QPen(faint, 2.2, Qt::SolidLine, Qt::RoundCap));
        p.drawLine(QPointF(4, 21), QPointF(20, 21));
        p.restore();
    } else if (n == QLatin1String("textformat")) {
        QFont f = p.font();
        f.setPixelSize(15);
        f.setWeight(QFont::DemiBold);
        p.setFont(f);
        p.drawText(QRectF(0, 1, 24, 22), Qt::AlignCenter, QStringLiteral("Aa"));
    } else if (n == QLatin1String("textformat.size")) {
        QFont f = p.font();
        f.setWeight(QFont::DemiBold);
        f.setPixelSize(17);
        p.setFont(f);
        p.drawText(QRectF(2, 1, 14, 22), Qt::AlignCenter, QStringLiteral("A"));
        f.setPixelSize(11);
        p.setFont(f);
        p.drawText(QRectF(13, 7, 9, 15), Qt::AlignCenter, QStringLiteral("A"));
    } else if (n == QLatin1String("1.circle")) {
        p.drawEllipse(QRectF(3.5, 3.5, 17, 17));
        QFont f = p.font();
        f.setPixelSize(11);
        f.setWeight(QFont::Bold);
        p.setFont(f);
        p.drawText(QRectF(0, 0, 24, 24), Qt::AlignCenter, QStringLiteral("1"));
    } else if (n == QLatin1String("square.grid.3x3.fill")) {
        p.setPen(Qt::NoPen);
        for (int y = 0; y < 3; ++y)
            for (int x = 0; x < 3; ++x) {
                QColor cell = c;
                cell.setAlphaF((x + y) % 2 ? 0.55f : 1.0f);
                p.setBrush(cell);
                p.drawRoundedRect(QRectF(4 + x * 5.6, 4 + y * 5.6, 4.6, 4.6), 0.8, 0.8);
            }
    } else if (n == QLatin1String("crop")) {
        QPainterPath a(QPointF(7, 3));
        a.lineTo(7, 17);
        a.lineTo(21, 17);
        QPainterPath b(QPointF(3, 7));
        b.lineTo(17, 7);
        b.lineTo(17, 21);
        p.drawPath(a);
        p.drawPath(b);
    } else if (n == QLatin1String("arrow.uturn.backward") ||
               n == QLatin1String("arrow.uturn.forward")) {
        const bool back = n.endsWith(QLatin1String("backward"));
        p.save();
        if (!back) {
            p.translate(24, 0);
            p.scale(-1, 1);
        }
        QPainterPath u(QPointF(6, 9));
        u.lineTo(14, 9);
        u.arcTo(QRectF(10, 9, 9, 9), 90, -180);
        u.lineTo(9, 18);
        p.drawPath(u);
        arrowHead(p, QPointF(5, 9), QPointF(12, 9), 4);
        p.restore();
    } else if (n == QLatin1String("trash")) {
        p.drawLine(QPointF(4.5, 6.5), QPointF(19.5, 6.5));
        p.drawRect(QRectF(9.5, 3.5, 5, 3));
        QPainterPath can(QPointF(6.5, 6.5));
        can.lineTo(7.5, 20);
        can.lineTo(16.5, 20);
        can.lineTo(17.5, 6.5);
        p.drawPath(can);
        p.drawLine(QPointF(10.5, 10), QPointF(10.5, 16.5));
        p.drawLine(QPointF(13.5, 10), QPointF(13.5, 16.5));
    } else if (n == QLatin1String("doc.on.doc")) {
        p.drawRoundedRect(QRectF(8.5, 7.5, 11, 13), 2, 2);
        QPainterPath back(QPointF(5, 16.5));
        back.lineTo(5, 5.5);
        back.quadTo(5, 3.5, 7, 3.5);
        back.lineTo(15, 3.5);
        p.drawPath(back);
    } else if (n == QLatin1String("text.viewfinder")) {
        for (int i = 0; i < 4; ++i) {
            p.save();
            p.translate(12, 12);
            p.rotate(90 * i);
            QPainterPath corner(QPointF(-8.5, -4));
            corner.lineTo(-8.5, -8.5);
            corner.lineTo(-4, -8.5);
            p.drawPath(corner);
            p.restore();
        }
        p.drawLine(QPointF(8, 9.5), QPointF(16, 9.5));
        p.drawLine(QPointF(8, 12.5), QPointF(16, 12.5));
        p.drawLine(QPointF(8, 15.5), QPointF(13, 15.5));
    } else if (n == QLatin1String("checkmark")) {
        QPainterPath t(QPointF(5, 12.5));
        t.lineTo(10, 17.5);
        t.lineTo(19, 6.5);
        p.drawPath(t);
    } else if (n == QLatin1String("xmark")) {
        p.drawLine(QPointF(6, 6), QPointF(18, 18));
        p.drawLine(QPointF(18, 6), QPointF(6, 18));
    } else if (n == QLatin1String("plus") || n == QLatin1String("minus")) {
        p.drawLine(QPointF(6, 12), QPointF(18, 12));
        if (n == QLatin1String("plus"))
            p.drawLine(QPointF(12, 6), QPointF(12, 18));
    } else if (n == QLatin1String("photo.on.rectangle")) {
        p.drawRoundedRect(QRectF(3.5, 3.5, 17, 17), 3, 3);
        p.drawRoundedRect(QRectF(7.5, 7.5, 9, 9), 1.5, 1.5);
    } else if (n == QLatin1String("ellipsis.circle")) {
        p.drawEllipse(QRectF(3.5, 3.5, 17, 17));
        p.setBrush(c);
        p.setPen(Qt::NoPen);
        for (int i = -1; i <= 1; ++i)
            p.drawEllipse(QPointF(12 + 4.5 * i, 12), 1.3, 1.3);
    } else if (n == QLatin1String("hand.raised")) {
        QPainterPath h(QPointF(8, 20));
        h.lineTo(5.5, 13.5);
        h.quadTo(5, 11.5, 7, 12);
        h.lineTo(8, 14);
        h.lineTo(8, 6);
        h.quadTo(9.5, 4.5, 11, 6);
        h.lineTo(11, 11);
        h.lineTo(11, 4.5);
        h.quadTo(12.5, 3, 14, 4.5);
        h.lineTo(14, 11);
        h.lineTo(14, 6);
        h.quadTo(15.5, 4.5, 17, 6);
        h.lineTo(17, 16);
        h.quadTo(17, 20, 14, 20);
        h.closeSubpath();
        p.drawPath(h);
    } else {
        p.setBrush(c);
        p.drawEllipse(QPointF(12, 12), 2, 2);
    }
}

class SymbolEngine final : public QIconEngine {
public:
    SymbolEngine(QString name, QColor color)
        : m_name(std::move(name))
        , m_color(color) {}
    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State) override {
        QColor c =
            m_color.isValid() ? m_color : QApplication::palette().color(QPalette::WindowText);
        if (mode == QIcon::Disabled)
            c.setAlphaF(0.35f);
        drawSymbol(*painter, m_name, rect, c);
    }
    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
        QPixmap pm(size);
        pm.fill(Qt::transparent);
        QPainter p(&pm);
        paint(&p, QRect(QPoint(0, 0), size), mode, state);
        return pm;
    }
    QIconEngine* clone() const override { return new SymbolEngine(m_name, m_color); }

private:
    QString m_name;
    QColor m_color;
};

} // namespace

void drawSymbol(QPainter& painter, const QString& name, const QRectF& box, const QColor& color) {
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::TextAntialiasing);
    const double side = std::min(box.width(), box.height());
    painter.translate(box.center() - QPointF(side, side) / 2);
    painter.scale(side / 24, side / 24);
    painter.setPen(QPen(color, 1.7, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter.setBrush(Qt::NoBrush);
    drawNamed(painter, name);
    painter.restore();
}

QIcon symbolIcon(const QString& name, QColor color) {
    return QIcon(new SymbolEngine(name, color));
}

} // namespace qm
