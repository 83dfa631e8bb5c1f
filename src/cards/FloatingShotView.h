#pragma once

#include "cards/DragOutGesture.h"

#include <QImage>
#include <QLabel>
#include <QVariantAnimation>
#include <QWidget>
#include <functional>
#include <optional>

class QMenu;

namespace qm {

class DragSourceView;
class HoverIconButton;

// One capture card in its own floating window: the thumbnail (click to annotate, drag out to
// export) with round buttons that fade in under the pointer. It never takes the keyboard focus
// and takes the first click at once. Buttons are found by object name: "copyButton",
// "copyTextButton", "revealButton", "annotateButton", "pinButton", "closeButton",
// "deleteButton", and the thumbnail "thumbnail".
class FloatingShotView final : public QWidget {
    Q_OBJECT
public:
    static constexpr int cardWidth = 240;
    static constexpr int cardHeight = 160;
    static constexpr int padding = 8;
    static constexpr QSize panelSize{cardWidth + 2 * padding, cardHeight + 2 * padding};

    struct Actions {
        std::function<void()> onCopy;
        std::function<void()> onCopyText; // none: the button is disabled
        std::function<void()> onReveal;
        std::function<void()> onAnnotate;
        std::function<void()> onTogglePin;
        std::function<void()> onClose;
        std::function<void()> onDelete;
        std::function<void()> onAskAI; // none: not offered
        std::function<void(bool)> onHoverChanged;
        DragOutGesture::FileProvider fileURL;
        DragOutGesture::ImageProvider fullImage;
    };

    FloatingShotView(const QImage& image, bool animateIn, Actions actions);

    void setImage(const QImage& image);
    void setPinned(bool pinned);
    bool isPinned() const { return m_pinned; }
    // None: not tried; true: text copied; false: no text found.
    void setOcrResult(std::optional<bool> result);
    std::optional<bool> ocrResult() const { return m_ocrResult; }
    // Marks a card whose file is not (or no longer) on disk: a badge with the label, the
    // reason as its tool-tip, and Delete disabled, since there is nothing to move to the
    // Trash. An empty label clears the mark. The badge is the child "fileProblem".
    void setFileProblem(const QString& label, const QString& reason);
    QString fileProblem() const;
    bool hovering() const { return m_hovering; }

    DragSourceView* thumbnail() const { return m_thumbnail; }

    // The card's right-click menu: every button's command, and "Ask Claude…" when offered.
    // The caller owns it.
    QMenu* makeMenu(QWidget* parent);

    // Fades the card out, then closes (and deletes) it.
    void fadeOut();

protected:
    void contextMenuEvent(QContextMenuEvent* event) override;
    void enterEvent(QEnterEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void showEvent(QShowEvent* event) override;

private:
    void setHovering(bool hovering);
    void setDragging(bool dragging);
    void applyHoverProgress(double progress);
    void placeButtons();
    void applyShape();
    HoverIconButton* addButton(const QString& name, const QString& iconName, const QString& help,
                               const std::function<void()>& action);

    Actions m_actions;
    DragSourceView* m_thumbnail = nullptr;
    HoverIconButton* m_copy = nullptr;
    HoverIconButton* m_copyText = nullptr;
    HoverIconButton* m_reveal = nullptr;
    HoverIconButton* m_annotate = nullptr;
    HoverIconButton* m_pin = nullptr;
    HoverIconButton* m_close = nullptr;
    HoverIconButton* m_delete = nullptr;
    QLabel* m_problem = nullptr;
    QVariantAnimation m_hoverAnimation;
    double m_hoverProgress = 0.0;
    bool m_hovering = false;
    bool m_dragging = false;
    bool m_pinned = false;
    bool m_animateIn = false;
    bool m_appeared = false;
    std::optional<bool> m_ocrResult;
};

} // namespace qm
