#include "cards/FloatingShotView.h"

#include "cards/DragSourceView.h"
#include "cards/HoverIconButton.h"
#include "ui/Brand.h"
#include "ui/FloatingWindow.h"
#include "ui/Icons.h"

#include <QContextMenuEvent>
#include <QMenu>
#include <QPainter>
#include <QPainterPath>
#include <QPropertyAnimation>
#include <QRegion>
#include <QScreen>
#include <QWindow>

namespace qm {

namespace {
constexpr int kButtonInset = 8;
constexpr int kButtonGap = 6;
constexpr int kHoverMillis = 140;
constexpr int kAppearMillis = 220;
constexpr int kFadeOutMillis = 150;

QString ocrIcon(std::optional<bool> result) {
    if (!result)
        return QStringLiteral("edit-find");
    return *result ? QStringLiteral("object-select") : QStringLiteral("action-unavailable");
}

void animateOpacity(QWidget* window, double to, int millis, const std::function<void()>& then) {
    auto* animation = new QPropertyAnimation(window, "windowOpacity", window);
    animation->setDuration(millis);
    animation->setStartValue(window->windowOpacity());
    animation->setEndValue(to);
    animation->setEasingCurve(QEasingCurve::OutCubic);
    if (then)
        QObject::connect(animation, &QPropertyAnimation::finished, window, then);
    animation->start(QAbstractAnimation::DeleteWhenStopped);
}
} // namespace

FloatingShotView::FloatingShotView(const QImage& image, bool animateIn, Actions actions)
    : m_actions(std::move(actions))
    , m_animateIn(animateIn) {
    setObjectName(QStringLiteral("FloatingShotView"));
    setWindowTitle(QStringLiteral("Quillmark Capture"));
    makeFloatingWindow(this, PointerInput::Accept);
    setAttribute(Qt::WA_DeleteOnClose);
    // The card's program is rarely the active one; its tool-tips show all the same.
    setAttribute(Qt::WA_AlwaysShowToolTips);
    setFixedSize(panelSize);

    m_thumbnail = new DragSourceView(this);
    m_thumbnail->setAttribute(Qt::WA_AlwaysShowToolTips);
    m_thumbnail->setGeometry(padding, padding, cardWidth, cardHeight);
    m_thumbnail->configure(image, m_actions.onAnnotate, m_actions.fileURL, m_actions.fullImage);
    m_thumbnail->onDragChanged = [this](bool dragging) { setDragging(dragging); };

    m_close = addButton(QStringLiteral("closeButton"), QStringLiteral("window-close"),
                        QStringLiteral("Close"), m_actions.onClose);
    m_pin = addButton(QStringLiteral("pinButton"), QStringLiteral("view-pin"),
                      QStringLiteral("Pin to this screen"), m_actions.onTogglePin);
    m_copy = addButton(QStringLiteral("copyButton"), QStringLiteral("edit-copy"),
                       QStringLiteral("Copy"), m_actions.onCopy);
    m_copyText = addButton(QStringLiteral("copyTextButton"), ocrIcon(std::nullopt),
                           QStringLiteral("Copy Text (OCR)"), m_actions.onCopyText);
    m_copyText->setEnabled(bool(m_actions.onCopyText));
    m_reveal = addButton(QStringLiteral("revealButton"), QStringLiteral("folder"),
                         QStringLiteral("Show in Folder"), m_actions.onReveal);
    m_annotate = addButton(QStringLiteral("annotateButton"), QStringLiteral("document-edit"),
                           QStringLiteral("Annotate"), m_actions.onAnnotate);
    m_delete =
        addButton(QStringLiteral("deleteButton"), QStringLiteral("user-trash"),
                  QStringLiteral("Delete (moves the file to the Trash)"), m_actions.onDelete);
    m_delete->setDestructive(true);

    m_problem = new QLabel(this);
    m_problem->setObjectName(QStringLiteral("fileProblem"));
    m_problem->setAttribute(Qt::WA_AlwaysShowToolTips);
    m_problem->setAlignment(Qt::AlignCenter);
    m_problem->setStyleSheet(QStringLiteral("QLabel { background: rgba(200, 40, 30, 230); "
                                            "color: white; border-radius: 9px; "
                                            "padding: 2px 8px; font-weight: 600; }"));
    m_problem->hide();
    placeButtons();

    m_hoverAnimation.setDuration(kHoverMillis);
    m_hoverAnimation.setEasingCurve(QEasingCurve::OutCubic);
    connect(&m_hoverAnimation, &QVariantAnimation::valueChanged, this,
            [this](const QVariant& value) { applyHoverProgress(value.toDouble()); });
    applyHoverProgress(0.0);

    // The window system keeps the shape in its own pixels: a card that moves to a monitor of
    // another scale needs it made again, or most of the card would be cut away.
    winId();
    connect(windowHandle(), &QWindow::screenChanged, this, [this] { applyShape(); });
}

QMenu* FloatingShotView::makeMenu(QWidget* parent) {
    auto* menu = new QMenu(parent);
    const auto add = [menu](const QString& iconName, const QString& text,
                            const std::function<void()>& action) {
        if (!action)
            return;
        QAction* item = menu->addAction(themedIcon(iconName), text);
        QObject::connect(item, &QAction::triggered, menu, [action] { action(); });
    };
    add(QStringLiteral("edit-copy"), tr("Copy"), m_actions.onCopy);
    add(QStringLiteral("edit-find"), tr("Copy Text"), m_actions.onCopyText);
    add(QStringLiteral("folder"), tr("Show in Folder"), m_actions.onReveal);
    add(QStringLiteral("document-edit"), tr("Annotate"), m_actions.onAnnotate);
    add(QStringLiteral("tools-wizard"), tr("Ask Claude…"), m_actions.onAskAI);
    menu->addSeparator();
    add(QStringLiteral("view-pin"), m_pinned ? tr("Unpin") : tr("Pin to this screen"),
        m_actions.onTogglePin);
    add(QStringLiteral("user-trash"), tr("Delete"), m_actions.onDelete);
    add(QStringLiteral("window-close"), tr("Close"), m_actions.onClose);
    return menu;
}

void FloatingShotView::contextMenuEvent(QContextMenuEvent* event) {
    QMenu* menu = makeMenu(this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->popup(event->globalPos());
}

HoverIconButton* FloatingShotView::addButton(const QString& name, const QString& iconName,
                                             const QString& help,
                                             const std::function<void()>& action) {
    auto* button = new HoverIconButton(iconName, help, this);
    button->setObjectName(name);
    button->setAttribute(Qt::WA_AlwaysShowToolTips);
    connect(button, &QAbstractButton::clicked, this, [action] {
        if (action)
            action();
    });
    return button;
}

void FloatingShotView::placeButtons() {
    const QRect card(padding, padding, cardWidth, cardHeight);
    const QSize size = m_close->sizeHint();
    m_close->setGeometry(QRect(card.topLeft() + QPoint(kButtonInset, kButtonInset), size));
    m_pin->setGeometry(QRect(
        QPoint(card.right() + 1 - kButtonInset - size.width(), card.top() + kButtonInset), size));
    const std::array<HoverIconButton*, 5> row{m_copy, m_copyText, m_reveal, m_annotate, m_delete};
    const int rowWidth = int(row.size()) * size.width() + int(row.size() - 1) * kButtonGap;
    int x = card.left() + (card.width() - rowWidth) / 2;
    const int y = card.bottom() + 1 - kButtonInset - size.height();
    for (HoverIconButton* button : row) {
        button->setGeometry(QRect(QPoint(x, y), size));
        x += size.width() + kButtonGap;
    }
}

void FloatingShotView::setFileProblem(const QString& label, const QString& reason) {
    m_problem->setText(label);
    m_problem->setToolTip(reason);
    m_problem->setVisible(!label.isEmpty());
    m_problem->adjustSize();
    m_problem->move(padding + (cardWidth - m_problem->width()) / 2, padding + kButtonInset + 2);
    m_problem->raise();
    m_delete->setEnabled(label.isEmpty());
}

QString FloatingShotView::fileProblem() const {
    return m_problem->isHidden() ? QString() : m_problem->text();
}

void FloatingShotView::setImage(const QImage& image) {
    m_thumbnail->configure(image, m_actions.onAnnotate, m_actions.fileURL, m_actions.fullImage);
}

void FloatingShotView::setPinned(bool pinned) {
    m_pinned = pinned;
    m_pin->setIconName(pinned ? QStringLiteral("window-pin") : QStringLiteral("view-pin"));
    m_pin->setHelp(pinned ? QStringLiteral("Unpin — follow the cursor across monitors")
                          : QStringLiteral("Pin to this screen"));
    m_pin->setTint(pinned ? Brand::yellow() : QColor(Qt::white));
    applyHoverProgress(m_hoverProgress);
}

void FloatingShotView::setOcrResult(std::optional<bool> result) {
    m_ocrResult = result;
    m_copyText->setIconName(ocrIcon(result));
}

void FloatingShotView::enterEvent(QEnterEvent* event) {
    setHovering(true);
    QWidget::enterEvent(event);
}

void FloatingShotView::leaveEvent(QEvent* event) {
    setHovering(false);
    QWidget::leaveEvent(event);
}

void FloatingShotView::setHovering(bool hovering) {
    if (hovering == m_hovering)
        return;
    m_hovering = hovering;
    m_hoverAnimation.stop();
    m_hoverAnimation.setStartValue(m_hoverProgress);
    m_hoverAnimation.setEndValue(hovering ? 1.0 : 0.0);
    m_hoverAnimation.start();
    if (m_actions.onHoverChanged && !m_dragging)
        m_actions.onHoverChanged(hovering);
}

void FloatingShotView::setDragging(bool dragging) {
    // A card being dragged out counts as hovered: it must not dismiss itself under the drag.
    m_dragging = dragging;
    if (m_actions.onHoverChanged)
        m_actions.onHoverChanged(dragging || m_hovering);
}

void FloatingShotView::applyHoverProgress(double progress) {
    m_hoverProgress = progress;
    m_thumbnail->setHoverProgress(progress);
    for (HoverIconButton* button : {m_close, m_copy, m_copyText, m_reveal, m_annotate, m_delete})
        button->setReveal(progress);
    // A pinned card shows its pin at all times, so the user sees why it stays put.
    m_pin->setReveal(m_pinned ? std::max(progress, 0.9) : progress);
}

void FloatingShotView::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    if (m_appeared)
        return;
    m_appeared = true;
    if (m_animateIn) {
        setWindowOpacity(0.0);
        animateOpacity(this, 1.0, kAppearMillis, {});
    }
}

void FloatingShotView::fadeOut() {
    setAttribute(Qt::WA_TransparentForMouseEvents);
    animateOpacity(this, 0.0, kFadeOutMillis, [this] { close(); });
}

void FloatingShotView::resizeEvent(QResizeEvent*) {
    applyShape();
}

void FloatingShotView::applyShape() {
    if (testAttribute(Qt::WA_TranslucentBackground)) {
        clearMask();
        return;
    }
    // Without a compositor the padding is cut away, so the desktop shows around the card.
    QPainterPath path;
    path.addRoundedRect(QRectF(padding, padding, cardWidth, cardHeight),
                        DragSourceView::cornerRadius, DragSourceView::cornerRadius);
    clearMask();
    setMask(QRegion(path.toFillPolygon().toPolygon()));
}

void FloatingShotView::paintEvent(QPaintEvent*) {
    if (!testAttribute(Qt::WA_TranslucentBackground))
        return;
    // A soft shadow in the padding lifts the card off the desktop.
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.fillRect(rect(), Qt::transparent);
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    painter.setPen(Qt::NoPen);
    const QRectF card(padding, padding, cardWidth, cardHeight);
    for (int i = padding; i > 0; --i) {
        painter.setBrush(QColor(0, 0, 0, 6 + (padding - i) * 2));
        const double r = DragSourceView::cornerRadius + i;
        painter.drawRoundedRect(card.adjusted(-i, -i + 2, i, i + 2), r, r);
    }
}

} // namespace qm
