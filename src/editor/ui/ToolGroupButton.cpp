#include "editor/ui/ToolGroupButton.h"

#include "editor/model/EditorModel.h"
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
#include <QScreen>
#include <QShortcut>
#include <QSlider>
#include <QStyleOptionToolButton>
#include <QStylePainter>
#include <QTimer>
#include <QVBoxLayout>
#include <cmath>

namespace qm {

// --- Tool group ---

ToolGroupButton::ToolGroupButton(EditorModel& model, QList<AnnotationTool> tools, QWidget* parent)
    : QToolButton(parent)
    , m_model(model)
    , m_tools(std::move(tools))
    , m_remembered(m_tools.first()) {
    setCheckable(true);
    setFocusPolicy(Qt::NoFocus);
    setPopupMode(QToolButton::DelayedPopup);
    auto* menu = new QMenu(this);
    for (AnnotationTool tool : m_tools) {
        QAction* action =
            menu->addAction(themedIcon(toolInfo(tool).icon),
                            toolInfo(tool).help + QLatin1Char('\t') + toolInfo(tool).shortcut);
        connect(action, &QAction::triggered, this, [this, tool] { select(tool); });
    }
    setMenu(menu);
    connect(this, &QToolButton::clicked, this, [this] { select(m_remembered); });
    connect(&m_model, &EditorModel::toolChanged, this, [this] {
        if (m_tools.contains(m_model.tool()))
            m_remembered = m_model.tool();
        refresh();
    });
    refresh();
}

bool ToolGroupButton::isActive() const {
    return m_tools.contains(m_model.tool());
}

void ToolGroupButton::select(AnnotationTool tool) {
    m_model.document().commitPendingText();
    m_model.setTool(tool);
    m_model.document().setSelectedID(std::nullopt);
    m_remembered = tool;
    refresh();
}

void ToolGroupButton::refresh() {
    const AnnotationToolInfo& info = toolInfo(m_remembered);
    setIcon(themedIcon(info.icon));
    setToolTip(info.help + QStringLiteral(" (") + info.shortcut +
               QStringLiteral("), hold for more tools"));
    setChecked(isActive());
}

void ToolGroupButton::paintEvent(QPaintEvent*) {
    // Without the menu arrow the style would reserve room for; a small corner tick instead.
    QStylePainter painter(this);
    QStyleOptionToolButton option;
    initStyleOption(&option);
    option.features &= ~QStyleOptionToolButton::MenuButtonPopup;
    option.features &= ~QStyleOptionToolButton::HasMenu;
    painter.drawComplexControl(QStyle::CC_ToolButton, option);
    painter.setRenderHint(QPainter::Antialiasing);
    QColor tick = palette().color(QPalette::WindowText);
    tick.setAlphaF(0.7f);
    painter.setPen(Qt::NoPen);
    painter.setBrush(tick);
    const QPointF corner(width() - 4.5, height() - 4.5);
    QPainterPath path(corner);
    path.lineTo(corner - QPointF(5, 0));
    path.lineTo(corner - QPointF(0, 5));
    path.closeSubpath();
    painter.drawPath(path);
}

} // namespace qm
