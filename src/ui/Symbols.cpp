#include "ui/Symbols.h"

#include "ui/Icons.h"

#include <utility>

namespace qm {

namespace {
// Old symbol name → freedesktop icon name (or the common theme name where the naming
// specification has none).
constexpr std::pair<const char16_t*, const char16_t*> kRenamed[] = {
    // The floating panels, the tray and the toasts.
    {u"checkmark", u"object-select"},
    {u"clock.arrow.circlepath", u"document-open-recent"},
    {u"doc.on.doc", u"edit-copy"},
    {u"exclamationmark.triangle.fill", u"dialog-warning"},
    {u"folder", u"folder"},
    {u"info.circle", u"help-about"},
    {u"macwindow", u"window"},
    {u"pencil.tip.crop.circle", u"document-edit"},
    {u"photo.stack", u"image-x-generic"},
    {u"pin", u"view-pin"},
    {u"pin.fill", u"window-pin"},
    {u"power", u"application-exit"},
    {u"rectangle.dashed", u"select-rectangular"},
    {u"rectangle.inset.filled", u"view-fullscreen"},
    {u"sparkles", u"tools-wizard"},
    {u"square.and.arrow.down", u"document-save"},
    {u"text.badge.xmark", u"action-unavailable"},
    {u"text.viewfinder", u"edit-find"},
    {u"timeline.selection", u"edit-cut"},
    {u"timer", u"chronometer"},
    {u"trash", u"user-trash"},
    {u"xmark", u"window-close"},
    // The editor.
    {u"cursorarrow", u"edit-select"},
    {u"rectangle", u"draw-rectangle"},
    {u"circle", u"draw-ellipse"},
    {u"arrow.up.right", u"draw-arrow"},
    {u"line.diagonal", u"draw-line"},
    {u"scribble.variable", u"draw-freehand"},
    {u"highlighter", u"draw-highlight"},
    {u"textformat", u"draw-text"},
    {u"textformat.size", u"format-font-size-more"},
    {u"1.circle", u"format-list-ordered"},
    {u"square.grid.3x3.fill", u"pixelate"},
    {u"crop", u"transform-crop"},
    {u"arrow.uturn.backward", u"edit-undo"},
    {u"arrow.uturn.forward", u"edit-redo"},
    {u"plus", u"zoom-in"},
    {u"minus", u"zoom-out"},
    {u"photo.on.rectangle", u"insert-image"},
    {u"ellipsis.circle", u"view-more"},
    {u"hand.raised", u"transform-browse"},
};
} // namespace

QString iconNameForSymbol(QStringView name) {
    for (const auto& [old, renamed] : kRenamed)
        if (name == QStringView(old))
            return QString::fromUtf16(renamed);
    return name.toString();
}

QString symbolForIconName(QStringView iconName) {
    for (const auto& [old, renamed] : kRenamed)
        if (iconName == QStringView(renamed))
            return QString::fromUtf16(old);
    return iconName.toString();
}

bool hasSymbol(QStringView name) {
    return hasIcon(iconNameForSymbol(name));
}

QImage renderSymbol(QStringView name, const QColor& tint, QSizeF size, qreal devicePixelRatio) {
    return renderIcon(iconNameForSymbol(name), tint, size, devicePixelRatio);
}

} // namespace qm
