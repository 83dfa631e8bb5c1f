#include "editor/ui/EditorToolbar.h"

#include "editor/model/EditorModel.h"
#include "editor/ui/BackgroundPopover.h"
#include "editor/ui/Popover.h"
#include "editor/ui/TextFormattingPopover.h"
#include "editor/ui/ToolFormattingPopover.h"
#include "editor/ui/ToolGroupButton.h"
#include "ocr/TextRecognizer.h"
#include "ui/Icons.h"

#include <QCheckBox>
#include <QColorDialog>
#include <QComboBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLinearGradient>
#include <QMenu>
#include <QPainter>
#include <QPainterPath>
#include <QResizeEvent>
#include <QScreen>
#include <QShortcut>
#include <QSlider>
#include <QStyleOptionToolButton>
#include <QStylePainter>
#include <QTimer>
#include <QVBoxLayout>
#include <cmath>

namespace qm {

namespace {

QString toolTipFor(AnnotationTool tool) {
    const AnnotationToolInfo& info = toolInfo(tool);
    return info.help + QStringLiteral(" (") + info.shortcut + QLatin1Char(')');
}

QIcon gradientIcon(const QList<QColor>& colors, bool on) {
    QPixmap pm(QSize(40, 40));
    pm.fill(Qt::transparent);
    QPainter p(&pm);
    p.setRenderHint(QPainter::Antialiasing);
    QLinearGradient g(QPointF(4, 4), QPointF(36, 36));
    for (qsizetype i = 0; i < colors.size(); ++i)
        g.setColorAt(colors.size() > 1 ? double(i) / double(colors.size() - 1) : 0, colors[i]);
    p.setPen(Qt::NoPen);
    p.setBrush(g);
    p.setOpacity(on ? 1.0 : 0.55);
    p.drawRoundedRect(QRectF(5, 5, 30, 30), 7, 7);
    p.setOpacity(1);
    p.setBrush(QColor(255, 255, 255, 235));
    p.drawRoundedRect(QRectF(12, 13, 16, 14), 3, 3);
    p.end();
    return QIcon(pm);
}

} // namespace

// --- Toolbar ---

EditorToolbar::EditorToolbar(EditorModel& model, QWidget* parent)
    : QWidget(parent)
    , m_model(model) {
    setObjectName(QStringLiteral("EditorToolbar"));
    setStyleSheet(QStringLiteral(
        "#EditorToolbar QToolButton { border: none; border-radius: 7px; padding: 5px; }"
        "#EditorToolbar QToolButton:hover { background: rgba(127,127,127,0.18); }"
        "#EditorToolbar QToolButton:checked { background: rgba(10,132,255,0.22); }"
        "#EditorToolbar QToolButton:disabled { background: transparent; }"
        "#EditorToolbar QToolButton::menu-indicator { image: none; width: 0; }"
        "#EditorToolbar QToolButton#done { background: #0A84FF; color: white; font-weight: 600;"
        " padding: 5px 16px; }"
        "#EditorToolbar QToolButton#done:hover { background: #1F8FFF; }"
        "#EditorToolbar QToolButton#done:pressed { background: #0070E0; }"));
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(12, 8, 12, 8);
    layout->setSpacing(2);

    const auto single = [&](AnnotationTool tool) {
        QToolButton* b = makeButton(toolInfo(tool).icon, toolTipFor(tool));
        b->setCheckable(true);
        connect(b, &QToolButton::clicked, this, [this, tool] { selectTool(tool); });
        m_toolButtons.append({tool, b});
        layout->addWidget(b);
    };
    const auto group = [&](QList<AnnotationTool> tools) {
        auto* g = new ToolGroupButton(m_model, tools, this);
        g->setIconSize(QSize(20, 20));
        m_groups << g;
        layout->addWidget(g);
    };
    const auto divider = [&] {
        auto* line = new QFrame(this);
        line->setFrameShape(QFrame::VLine);
        line->setFixedHeight(22);
        line->setStyleSheet(QStringLiteral("color: rgba(127,127,127,0.35);"));
        layout->addSpacing(6);
        layout->addWidget(line);
        layout->addSpacing(6);
    };

    single(AnnotationTool::Select);
    group({AnnotationTool::Rectangle, AnnotationTool::Ellipse});
    group({AnnotationTool::Arrow, AnnotationTool::Line});
    group({AnnotationTool::Pen, AnnotationTool::Highlighter});
    single(AnnotationTool::Text);
    single(AnnotationTool::Step);
    single(AnnotationTool::Pixelate);
    single(AnnotationTool::Crop);
    divider();

    m_toolPopover = new ToolFormattingPopover(m_model, this);
    m_textPopover = new TextFormattingPopover(m_model, this);
    m_backgroundPopover = new BackgroundPopover(m_model, this);
    m_stroke = makeButton({}, tr("Stroke color and weight"));
    connect(m_stroke, &QToolButton::clicked, this, [this] { m_toolPopover->showBelow(m_stroke); });
    m_text = makeButton(QStringLiteral("format-font-size-more"),
                        tr("Text formatting: size, color, and background"));
    connect(m_text, &QToolButton::clicked, this, [this] { m_textPopover->showBelow(m_text); });
    m_backdrop = makeButton({}, tr("Backdrop"));
    connect(m_backdrop, &QToolButton::clicked, this,
            [this] { m_backgroundPopover->showBelow(m_backdrop); });
    layout->addWidget(m_stroke);
    layout->addWidget(m_text);
    layout->addWidget(m_backdrop);
    divider();

    m_undo = makeButton(QStringLiteral("edit-undo"), tr("Undo"));
    m_undo->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Z));
    connect(m_undo, &QToolButton::clicked, this, [this] {
        m_model.document().commitPendingText();
        m_model.document().undo();
    });
    m_redo = makeButton(QStringLiteral("edit-redo"), tr("Redo"));
    m_redo->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z));
    connect(m_redo, &QToolButton::clicked, this, [this] {
        m_model.document().commitPendingText();
        m_model.document().redo();
    });
    m_delete = makeButton(QStringLiteral("user-trash"), QStringLiteral("Delete selected (⌫)"));
    connect(m_delete, &QToolButton::clicked, this, [this] { m_model.document().removeSelected(); });
    layout->addWidget(m_undo);
    layout->addWidget(m_redo);
    layout->addWidget(m_delete);

    m_applyCrop = makeButton(QStringLiteral("object-select"), tr("Apply crop (Return)"));
    connect(m_applyCrop, &QToolButton::clicked, this, [this] { m_model.commitCrop(); });
    m_cancelCrop = makeButton(QStringLiteral("window-close"), QStringLiteral("Cancel crop (Esc)"));
    connect(m_cancelCrop, &QToolButton::clicked, this, [this] { m_model.cancelCrop(); });
    layout->addWidget(m_applyCrop);
    layout->addWidget(m_cancelCrop);
    layout->addStretch(1);

    m_copyText = makeButton(QStringLiteral("edit-find"), tr("Copy text"));
    m_copyText->setPopupMode(QToolButton::InstantPopup);
    auto* textMenu = new QMenu(m_copyText);
    textMenu->setToolTipsVisible(true);
    QAction* all = textMenu->addAction(tr("Copy All Text"));
    all->setToolTip(tr("Copy all text in the image"));
    connect(all, &QAction::triggered, this, &EditorToolbar::copyAllText);
    QAction* fromSelection = textMenu->addAction(tr("Copy Text from Selection"));
    fromSelection->setToolTip(tr("Drag over text…"));
    connect(fromSelection, &QAction::triggered, this, &EditorToolbar::copyTextFromSelection);
    m_copyText->setMenu(textMenu);
    m_copyImage = makeButton(QStringLiteral("edit-copy"), tr("Copy the finished image (Ctrl+C)"));
    // While text is typed, Ctrl+C copies the selected letters instead: the field claims it.
    m_copyImage->setShortcut(QKeySequence::Copy);
    connect(m_copyImage, &QToolButton::clicked, this, [this] {
        if (onCopy)
            onCopy();
    });
    m_askAI = makeButton(QStringLiteral("tools-wizard"), tr("Ask Claude about this image"));
    m_askAI->setObjectName(QStringLiteral("askClaude"));
    m_askAI->setVisible(false);
    connect(m_askAI, &QToolButton::clicked, this, [this] {
        if (m_onAskAI)
            m_onAskAI();
    });
    m_more = makeButton(QStringLiteral("view-more"), tr("More"));
    m_more->setObjectName(QStringLiteral("more"));
    m_more->setPopupMode(QToolButton::InstantPopup);
    m_moreMenu = new QMenu(m_more);
    connect(m_moreMenu, &QMenu::aboutToShow, this, &EditorToolbar::fillMoreMenu);
    m_more->setMenu(m_moreMenu);
    m_more->setVisible(false);
    m_done = new QToolButton(this);
    m_done->setObjectName(QStringLiteral("done"));
    m_done->setText(tr("Done"));
    m_done->setToolTip(tr("Done (Ctrl+Return)"));
    m_done->setFocusPolicy(Qt::NoFocus);
    m_done->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Return));
    // The keypad's Enter finishes too.
    auto* enter = new QShortcut(QKeySequence(Qt::CTRL | Qt::Key_Enter), this);
    connect(enter, &QShortcut::activated, m_done, &QToolButton::animateClick);
    connect(m_done, &QToolButton::clicked, this, [this] {
        if (onDone)
            onDone();
    });
    layout->addWidget(m_copyText);
    layout->addWidget(m_askAI);
    layout->addWidget(m_copyImage);
    layout->addWidget(m_more);
    layout->addSpacing(8);
    layout->addWidget(m_done);

    for (auto signal :
         {&EditorModel::toolChanged, &EditorModel::colorChanged, &EditorModel::ocrSelectingChanged})
        connect(&m_model, signal, this, &EditorToolbar::refresh);
    for (auto signal :
         {&AnnotationDocument::selectedIDsChanged, &AnnotationDocument::selectedIDChanged,
          &AnnotationDocument::historyChanged, &AnnotationDocument::annotationsChanged,
          &AnnotationDocument::cropEditChanged, &AnnotationDocument::editingTextIDChanged})
        connect(&m_model.document(), signal, this, &EditorToolbar::refresh);
    connect(&m_model.backdrop(), &Backdrop::backgroundChanged, this,
            &EditorToolbar::refreshBackdrop);
    refresh();
    refreshBackdrop();
}

QToolButton* EditorToolbar::makeButton(const QString& iconName, const QString& tooltip) {
    auto* b = new QToolButton(this);
    if (!iconName.isEmpty())
        b->setIcon(themedIcon(iconName));
    b->setIconSize(QSize(20, 20));
    b->setToolTip(tooltip);
    b->setAutoRaise(true);
    b->setFocusPolicy(Qt::NoFocus);
    return b;
}

QToolButton* EditorToolbar::toolButton(AnnotationTool tool) const {
    for (const auto& [t, b] : m_toolButtons)
        if (t == tool)
            return b;
    return groupButton(tool);
}

ToolGroupButton* EditorToolbar::groupButton(AnnotationTool tool) const {
    for (ToolGroupButton* g : m_groups)
        if (g->menu() &&
            std::any_of(g->menu()->actions().cbegin(), g->menu()->actions().cend(),
                        [&](QAction* a) {
                            return a->text().startsWith(toolInfo(tool).help + QLatin1Char('\t'));
                        }))
            return g;
    return nullptr;
}

void EditorToolbar::selectTool(AnnotationTool tool) {
    m_model.document().commitPendingText();
    m_model.setTool(tool);
    // Picking the select tool keeps what is selected; a drawing tool starts afresh.
    if (tool != AnnotationTool::Select)
        m_model.document().setSelectedID(std::nullopt);
}

void EditorToolbar::refresh() {
    const AnnotationTool tool = m_model.tool();
    for (const auto& [t, b] : m_toolButtons)
        b->setChecked(t == tool);
    const AnnotationTool config = m_model.configurationTool();
    const bool strokeApplies = isColorStyled(config) && config != AnnotationTool::Text;
    m_stroke->setEnabled(strokeApplies);
    // Icons are remade only when what they show changes: this runs on every edit.
    const QColor dot = strokeApplies ? m_model.displayColor() : QColor(160, 160, 160);
    if (dot != m_strokeIconColor) {
        m_stroke->setIcon(popover::colorDotIcon(dot));
        m_strokeIconColor = dot;
    }
    m_stroke->setToolTip(config == AnnotationTool::Step ? tr("Badge color")
                                                        : tr("Stroke color and weight"));
    m_text->setEnabled(config == AnnotationTool::Text || m_model.hasTargetedText());
    m_undo->setEnabled(m_model.document().canUndo());
    m_redo->setEnabled(m_model.document().canRedo());
    m_delete->setEnabled(!m_model.document().selectedIDs().isEmpty());
    const bool cropping = m_model.document().cropEdit().has_value();
    m_applyCrop->setVisible(cropping);
    m_cancelCrop->setVisible(cropping);
    m_copyText->setEnabled(!m_ocrRunning);
}

void EditorToolbar::refreshBackdrop() {
    const auto bg = m_model.backdrop().background();
    const QString preset = bg ? bg->presetID : m_model.backdrop().savedBackgroundStyle().presetID;
    const QString backdropKey = preset + (bg ? QStringLiteral(":on") : QStringLiteral(":off"));
    if (backdropKey != m_backdropIconKey) {
        m_backdrop->setIcon(gradientIcon(BackgroundPreset::colorsFor(preset), bg.has_value()));
        m_backdropIconKey = backdropKey;
    }
}

void EditorToolbar::copyAllText() {
    if (m_ocrRunning)
        return;
    m_ocrRunning = true;
    m_copyText->setToolTip(tr("Reading text…"));
    refresh();
    TextRecognizer::copyText(m_model.document().baseImage(), this,
                             [this](const Result<QString>& text) {
                                 m_ocrRunning = false;
                                 showOcrResult(text.ok() && !text->isEmpty());
                             });
}

void EditorToolbar::copyTextFromSelection() {
    m_model.document().commitPendingText();
    m_model.setOcrSelecting(true);
}

void EditorToolbar::showOcrResult(bool found) {
    m_ocrResult = found;
    m_copyText->setIcon(
        themedIcon(found ? QStringLiteral("object-select") : QStringLiteral("window-close")));
    m_copyText->setToolTip(found ? tr("Copied") : tr("No text found"));
    refresh();
    QTimer::singleShot(1400, this, [this] {
        m_ocrResult.reset();
        m_copyText->setIcon(themedIcon(QStringLiteral("edit-find")));
        m_copyText->setToolTip(tr("Copy text"));
    });
}

void EditorToolbar::setAskAI(std::function<void()> askAI) {
    m_onAskAI = std::move(askAI);
    updateOverflow();
}

void EditorToolbar::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    updateOverflow();
}

QList<QToolButton*> EditorToolbar::overflowingButtons() const {
    QList<QToolButton*> buttons{m_copyText, m_copyImage};
    if (m_onAskAI)
        buttons.insert(1, m_askAI);
    return buttons;
}

void EditorToolbar::updateOverflow() {
    const QList<QToolButton*> buttons = overflowingButtons();
    const int spacing = layout()->spacing();
    int inlineWidth = 0;
    for (QToolButton* b : buttons)
        inlineWidth += b->sizeHint().width() + spacing;
    const int moreWidth = m_more->sizeHint().width() + spacing;
    // The width the row takes with the commands inline, whatever is shown now.
    const int rest = layout()->sizeHint().width() - (m_collapsed ? moreWidth : inlineWidth);
    // Never narrower than the row with the "more" button, so the window can shrink to that.
    setMinimumWidth(rest + moreWidth);
    m_collapsed = width() < rest + inlineWidth;
    m_askAI->setVisible(!m_collapsed && m_onAskAI);
    m_copyText->setVisible(!m_collapsed);
    m_copyImage->setVisible(!m_collapsed);
    m_more->setVisible(m_collapsed);
}

void EditorToolbar::fillMoreMenu() {
    m_moreMenu->clear();
    if (m_onAskAI)
        connect(m_moreMenu->addAction(themedIcon(QStringLiteral("tools-wizard")),
                                      tr("Ask Claude about this image")),
                &QAction::triggered, this, [this] {
                    if (m_onAskAI)
                        m_onAskAI();
                });
    QAction* all =
        m_moreMenu->addAction(themedIcon(QStringLiteral("edit-find")), tr("Copy All Text"));
    all->setEnabled(!m_ocrRunning);
    connect(all, &QAction::triggered, this, &EditorToolbar::copyAllText);
    connect(m_moreMenu->addAction(tr("Copy Text from Selection")), &QAction::triggered, this,
            &EditorToolbar::copyTextFromSelection);
    connect(m_moreMenu->addAction(themedIcon(QStringLiteral("edit-copy")), tr("Copy Image")),
            &QAction::triggered, this, [this] {
                if (onCopy)
                    onCopy();
            });
}

} // namespace qm
