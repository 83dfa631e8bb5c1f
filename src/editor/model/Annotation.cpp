#include "editor/model/Annotation.h"

#include <algorithm>
#include <cmath>

namespace qm {

namespace {

const std::array<AnnotationToolInfo, 11>& toolTable() {
    static const std::array<AnnotationToolInfo, 11> table{{
        {AnnotationTool::Select, QStringLiteral("select"), QStringLiteral("Select / Move"),
         QLatin1Char('V'), QStringLiteral("edit-select")},
        {AnnotationTool::Rectangle, QStringLiteral("rectangle"), QStringLiteral("Rectangle"),
         QLatin1Char('R'), QStringLiteral("draw-rectangle")},
        {AnnotationTool::Ellipse, QStringLiteral("ellipse"), QStringLiteral("Ellipse"),
         QLatin1Char('O'), QStringLiteral("draw-ellipse")},
        {AnnotationTool::Arrow, QStringLiteral("arrow"), QStringLiteral("Arrow"), QLatin1Char('A'),
         QStringLiteral("draw-arrow")},
        {AnnotationTool::Line, QStringLiteral("line"), QStringLiteral("Line"), QLatin1Char('L'),
         QStringLiteral("draw-line")},
        {AnnotationTool::Pen, QStringLiteral("pen"), QStringLiteral("Pen"), QLatin1Char('P'),
         QStringLiteral("draw-freehand")},
        {AnnotationTool::Highlighter, QStringLiteral("highlighter"), QStringLiteral("Highlighter"),
         QLatin1Char('H'), QStringLiteral("draw-highlight")},
        {AnnotationTool::Text, QStringLiteral("text"), QStringLiteral("Text"), QLatin1Char('T'),
         QStringLiteral("draw-text")},
        {AnnotationTool::Step, QStringLiteral("step"), QStringLiteral("Step Number"),
         QLatin1Char('N'), QStringLiteral("format-list-ordered")},
        {AnnotationTool::Pixelate, QStringLiteral("pixelate"), QStringLiteral("Pixelate"),
         QLatin1Char('B'), QStringLiteral("pixelate")},
        {AnnotationTool::Crop, QStringLiteral("crop"), QStringLiteral("Crop"), QLatin1Char('C'),
         QStringLiteral("transform-crop")},
    }};
    return table;
}

int order(AnnotationTool tool) {
    return static_cast<int>(tool);
}

QRectF spanned(QPointF a, QPointF b) {
    return QRectF(std::min(a.x(), b.x()), std::min(a.y(), b.y()), std::abs(a.x() - b.x()),
                  std::abs(a.y() - b.y()));
}

QRectF pointsBounds(const QList<QPointF>& points) {
    if (points.isEmpty())
        return QRectF(0, 0, 0, 0);
    double minX = points.first().x(), maxX = minX;
    double minY = points.first().y(), maxY = minY;
    for (const QPointF& p : points) {
        minX = std::min(minX, p.x());
        maxX = std::max(maxX, p.x());
        minY = std::min(minY, p.y());
        maxY = std::max(maxY, p.y());
    }
    return QRectF(minX, minY, maxX - minX, maxY - minY).adjusted(-8, -8, 8, 8);
}

template <class> inline constexpr bool alwaysFalse = false;

} // namespace

const std::array<AnnotationTool, 11>& allAnnotationTools() {
    static const std::array<AnnotationTool, 11> tools = [] {
        std::array<AnnotationTool, 11> t{};
        for (size_t i = 0; i < t.size(); ++i)
            t[i] = toolTable()[i].tool;
        return t;
    }();
    return tools;
}

const AnnotationToolInfo& toolInfo(AnnotationTool tool) {
    return toolTable()[static_cast<size_t>(order(tool))];
}

std::optional<AnnotationTool> toolFromId(QStringView id) {
    for (const auto& info : toolTable())
        if (info.id == id)
            return info.tool;
    return std::nullopt;
}

std::optional<AnnotationTool> toolForKey(QStringView key) {
    for (const auto& info : toolTable())
        if (key == QString(info.shortcut.toLower()))
            return info.tool;
    return std::nullopt;
}

bool isColorStyled(AnnotationTool tool) {
    return order(tool) >= 1 && order(tool) <= 8;
}

bool isWidthStyled(AnnotationTool tool) {
    return order(tool) >= 1 && order(tool) <= 6;
}

const QList<AnnotationTool>& styledTools() {
    static const QList<AnnotationTool> tools = [] {
        QList<AnnotationTool> t;
        for (AnnotationTool tool : allAnnotationTools())
            if (tool != AnnotationTool::Select && order(tool) < 9)
                t.append(tool);
        return t;
    }();
    return tools;
}

Annotation::Annotation(Shape shape_, QColor color_, double lineWidth_, bool textBackground_,
                       QUuid id)
    : shape(std::move(shape_))
    , color(color_)
    , lineWidth(lineWidth_)
    , textBackground(textBackground_)
    , m_id(id) {}

AnnotationTool Annotation::tool() const {
    static constexpr std::array<AnnotationTool, 9> byShape{
        AnnotationTool::Rectangle, AnnotationTool::Ellipse,  AnnotationTool::Arrow,
        AnnotationTool::Line,      AnnotationTool::Pen,      AnnotationTool::Highlighter,
        AnnotationTool::Text,      AnnotationTool::Pixelate, AnnotationTool::Step};
    return byShape[shape.index()];
}

QRectF Annotation::bounds() const {
    return std::visit(
        [](const auto& s) -> QRectF {
            using T = std::decay_t<decltype(s)>;
            if constexpr (std::is_same_v<T, Rectangle> || std::is_same_v<T, Ellipse> ||
                          std::is_same_v<T, Pixelate>)
                return s.rect;
            else if constexpr (std::is_same_v<T, Text>)
                return s.frame;
            else if constexpr (std::is_same_v<T, Arrow> || std::is_same_v<T, Line>)
                return spanned(s.start, s.end).adjusted(-12, -12, 12, 12);
            else if constexpr (std::is_same_v<T, Pen> || std::is_same_v<T, Highlight>)
                return pointsBounds(s.points);
            else if constexpr (std::is_same_v<T, Step>)
                return QRectF(s.center.x() - s.radius, s.center.y() - s.radius, 2 * s.radius,
                              2 * s.radius);
            else
                static_assert(alwaysFalse<T>, "every shape has bounds");
        },
        shape);
}

void Annotation::translate(QPointF d) {
    std::visit(
        [d](auto& s) {
            using T = std::decay_t<decltype(s)>;
            if constexpr (std::is_same_v<T, Rectangle> || std::is_same_v<T, Ellipse> ||
                          std::is_same_v<T, Pixelate>)
                s.rect.translate(d);
            else if constexpr (std::is_same_v<T, Text>)
                s.frame.translate(d);
            else if constexpr (std::is_same_v<T, Arrow> || std::is_same_v<T, Line>) {
                s.start += d;
                s.end += d;
            } else if constexpr (std::is_same_v<T, Pen> || std::is_same_v<T, Highlight>) {
                for (QPointF& p : s.points)
                    p += d;
            } else if constexpr (std::is_same_v<T, Step>)
                s.center += d;
            else
                static_assert(alwaysFalse<T>, "every shape moves");
        },
        shape);
}

QColor Annotation::contrastingTextColor(const QColor& background) {
    const QColor c = background.toRgb();
    const double luminance = 0.299 * c.redF() + 0.587 * c.greenF() + 0.114 * c.blueF();
    // Colours keep their channels as 16-bit integers or floats, so a grey picked as exactly
    // 0.6 can come back a hair above it; it must still count as "not brighter than 0.6".
    return luminance > 0.6 + 1e-6 ? QColor(Qt::black) : QColor(Qt::white);
}

const QList<BackgroundPreset>& BackgroundPreset::all() {
    static const QList<BackgroundPreset> presets = [] {
        const auto hex = [](const char* text) {
            return colorFromHexRGB(QLatin1String(text)).value_or(QColor(Qt::black));
        };
        const auto preset = [&](const char* id, const char* name, const char* from,
                                const char* to) {
            return BackgroundPreset{QLatin1String(id), QLatin1String(name), {hex(from), hex(to)}};
        };
        return QList<BackgroundPreset>{
            preset("indigo", "Indigo", "#4F46E5", "#7C3AED"),
            preset("blue", "Blue", "#2563EB", "#06B6D4"),
            preset("sunset", "Sunset", "#FB923C", "#EC4899"),
            preset("mint", "Mint", "#34D399", "#0D9488"),
            preset("rose", "Rose", "#F43F5E", "#FB923C"),
            preset("slate", "Slate", "#334155", "#0B1120"),
            preset("silver", "Silver", "#E2E8F0", "#94A3B8"),
            preset("graphite", "Graphite", "#6B7280", "#374151"),
        };
    }();
    return presets;
}

QList<QColor> BackgroundPreset::colorsFor(const QString& id) {
    for (const auto& p : all())
        if (p.id == id)
            return p.colors;
    return all().first().colors;
}

std::optional<QColor> colorFromHexRGB(const QString& text) {
    QStringView s = QStringView(text).trimmed();
    if (s.startsWith(QLatin1Char('#')))
        s = s.mid(1);
    if (s.size() != 6)
        return std::nullopt;
    // The number parser tolerates one leading '+', as users' stored values may carry it.
    QStringView digits = s.startsWith(QLatin1Char('+')) ? s.mid(1) : s;
    if (digits.isEmpty())
        return std::nullopt;
    uint value = 0;
    for (QChar ch : digits) {
        const char16_t c = ch.unicode();
        int digit = -1;
        if (c >= u'0' && c <= u'9')
            digit = c - u'0';
        else if (c >= u'a' && c <= u'f')
            digit = c - u'a' + 10;
        else if (c >= u'A' && c <= u'F')
            digit = c - u'A' + 10;
        if (digit < 0)
            return std::nullopt;
        value = value * 16 + uint(digit);
    }
    return QColor::fromRgb(int((value >> 16) & 0xFF), int((value >> 8) & 0xFF), int(value & 0xFF));
}

QString hexRGB(const QColor& color) {
    const QColor c = color.toRgb();
    const auto byte = [](double f) { return std::clamp(int(std::lround(f * 255)), 0, 255); };
    return QStringLiteral("#%1%2%3")
        .arg(byte(c.redF()), 2, 16, QLatin1Char('0'))
        .arg(byte(c.greenF()), 2, 16, QLatin1Char('0'))
        .arg(byte(c.blueF()), 2, 16, QLatin1Char('0'))
        .toUpper();
}

} // namespace qm
