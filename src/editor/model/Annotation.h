#pragma once

#include <QChar>
#include <QColor>
#include <QList>
#include <QPointF>
#include <QRectF>
#include <QString>
#include <QStringView>
#include <QUuid>
#include <array>
#include <optional>
#include <variant>

namespace qm {

// The editor's tools, in toolbar order. The order matters: the colour- and width-styled tools
// are contiguous ranges of it.
enum class AnnotationTool {
    Select,
    Rectangle,
    Ellipse,
    Arrow,
    Line,
    Pen,
    Highlighter,
    Text,
    Step,
    Pixelate,
    Crop,
};

// The fixed facts about one tool, as the toolbar and keyboard show them.
struct AnnotationToolInfo {
    AnnotationTool tool;
    QString id;     // stored form, also used in settings keys: "select", "rectangle", …
    QString help;   // tooltip text
    QChar shortcut; // upper-case letter; typed keys match case-insensitively
    QString icon;   // freedesktop icon name
};

// Every tool in toolbar order.
const std::array<AnnotationTool, 11>& allAnnotationTools();
const AnnotationToolInfo& toolInfo(AnnotationTool tool);
inline QString toolId(AnnotationTool tool) {
    return toolInfo(tool).id;
}
// The tool whose id is exactly `id`.
std::optional<AnnotationTool> toolFromId(QStringView id);
// The first tool whose shortcut letter, lower-cased, equals `key` (the caller lower-cases the
// typed character).
std::optional<AnnotationTool> toolForKey(QStringView key);
// Tools that remember a colour: rectangle … step.
bool isColorStyled(AnnotationTool tool);
// Tools that also remember a line width: rectangle … highlighter.
bool isWidthStyled(AnnotationTool tool);
// The colour-styled tools in toolbar order.
const QList<AnnotationTool>& styledTools();

// One mark on a capture. Coordinates are image pixels, origin top-left, y down.
class Annotation {
public:
    // Shapes, in tag order (std::variant::index()).
    struct Rectangle {
        QRectF rect;
        bool operator==(const Rectangle&) const = default;
    };
    struct Ellipse {
        QRectF rect; // the oval's bounding box
        bool operator==(const Ellipse&) const = default;
    };
    struct Arrow {
        QPointF start; // tail
        QPointF end;   // tip
        bool operator==(const Arrow&) const = default;
    };
    struct Line {
        QPointF start;
        QPointF end;
        bool operator==(const Line&) const = default;
    };
    struct Pen {
        QList<QPointF> points; // in drawing order
        bool operator==(const Pen&) const = default;
    };
    struct Highlight {
        QList<QPointF> points;
        bool operator==(const Highlight&) const = default;
    };
    struct Text {
        // Covers the whole text once the document has fitted it (AnnotationDocument::
        // setTextLayout). A text grows with what is typed and breaks lines only where the
        // user does, until the user drags its width: from then on it wraps at that width.
        QRectF frame;
        QString string;
        double fontSize = 28;
        bool wrapsAtWidth = false;
        bool operator==(const Text&) const = default;
    };
    struct Pixelate {
        QRectF rect;
        bool operator==(const Pixelate&) const = default;
    };
    struct Step {
        QPointF center;
        qint64 number = 1; // 1-based
        double radius = 22;
        bool operator==(const Step&) const = default;
    };
    using Shape =
        std::variant<Rectangle, Ellipse, Arrow, Line, Pen, Highlight, Text, Pixelate, Step>;

    // A new annotation gets a fresh id unless one is given (undo snapshots keep ids).
    Annotation(Shape shape, QColor color, double lineWidth = 4, bool textBackground = false,
               QUuid id = QUuid::createUuid());

    QUuid id() const { return m_id; }

    Shape shape;
    QColor color;                // stroke, fill or text colour
    double lineWidth = 4;        // ignored by text, pixelate and step
    bool textBackground = false; // text only: a filled rounded chip behind the text

    template <typename T> bool is() const { return std::holds_alternative<T>(shape); }
    template <typename T> T* as() { return std::get_if<T>(&shape); }
    template <typename T> const T* as() const { return std::get_if<T>(&shape); }

    // The tool that makes this kind of shape (never Select or Crop).
    AnnotationTool tool() const;

    // The area the mark covers, for hit testing, marquee selection and the selection outline.
    // Arrows and lines are grown by 12, strokes by 8, so thin marks stay easy to hit.
    QRectF bounds() const;
    // Moves every coordinate; sizes, numbers and style stay.
    void translate(QPointF delta);

    // Black or white, whichever reads better on `background`.
    static QColor contrastingTextColor(const QColor& background);

    // Same id, shape and style.
    bool operator==(const Annotation&) const = default;

private:
    QUuid m_id;
};

// Remembered colour and width of one tool.
struct ToolStyle {
    QColor color;
    double lineWidth = 4;
    bool operator==(const ToolStyle&) const = default;
};

// The backdrop placed around an exported image.
struct BackgroundStyle {
    QString presetID = QStringLiteral("indigo"); // a BackgroundPreset id
    double padding = 48;                         // pixels around the image
    double cornerRadius = 18;                    // radius of the image's corners
    bool shadow = true;
    bool operator==(const BackgroundStyle&) const = default;
};

// One of the fixed backdrop gradients.
struct BackgroundPreset {
    QString id;
    QString name;         // shown to the user
    QList<QColor> colors; // gradient stops in order

    // The eight presets, in menu order.
    static const QList<BackgroundPreset>& all();
    // The colours of the preset with that id; an unknown id gives the first preset's colours.
    static QList<QColor> colorsFor(const QString& id);
};

// "#RRGGBB" or "RRGGBB", white space around it tolerated; anything else gives nothing.
std::optional<QColor> colorFromHexRGB(const QString& text);
// "#RRGGBB", upper-case, alpha dropped.
QString hexRGB(const QColor& color);

} // namespace qm
