#include "editor/ui/ToolFormattingPopover.h"

#include "editor/model/EditorModel.h"

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

// --- Stroke popover ---

const QList<double>& ToolFormattingPopover::widths() {
    static const QList<double> values{2, 4, 8, 14};
    return values;
}

QString ToolFormattingPopover::widthLabel(AnnotationTool tool, double width) {
    const double shown = tool == AnnotationTool::Highlighter ? width * 3.5 : width;
    return QString::number(std::lround(shown)) + QStringLiteral(" px");
}

ToolFormattingPopover::ToolFormattingPopover(EditorModel& model, QWidget* parent)
    : Popover(parent)
    , m_model(model) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(14, 12, 14, 12);
    layout->setSpacing(8);
    m_title = popover::sectionTitle(QString(), this);
    m_colors = new ColorRow(QString(), this);
    m_weightTitle = popover::sectionTitle(tr("Stroke weight"), this);
    m_widthRow = new QWidget(this);
    auto* row = new QHBoxLayout(m_widthRow);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(6);
    for (double w : widths()) {
        auto* b = new QToolButton(m_widthRow);
        b->setCheckable(true);
        b->setFocusPolicy(Qt::NoFocus);
        b->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
        b->setIconSize(QSize(36, 14));
        QPixmap pm(QSize(72, 28));
        pm.fill(Qt::transparent);
        QPainter p(&pm);
        p.setRenderHint(QPainter::Antialiasing);
        p.setPen(QPen(palette().color(QPalette::WindowText), std::min(w, 12.0) * 1.4, Qt::SolidLine,
                      Qt::RoundCap));
        p.drawLine(QPointF(12, 14), QPointF(60, 14));
        p.end();
        b->setIcon(QIcon(pm));
        connect(b, &QToolButton::clicked, this, [this, w] { m_model.applyLineWidth(w); });
        row->addWidget(b);
        m_widthButtons << b;
    }
    row->addStretch();
    m_footnote = popover::footnoteLabel(this);
    m_footnote->setMaximumWidth(340);
    layout->addWidget(m_title);
    layout->addWidget(m_colors);
    layout->addSpacing(4);
    layout->addWidget(m_weightTitle);
    layout->addWidget(m_widthRow);
    layout->addWidget(m_footnote);

    connect(m_colors, &ColorRow::picked, this,
            [this](const QColor& c) { m_model.applyConfigurationColor(c); });
    for (auto signal :
         {&EditorModel::toolChanged, &EditorModel::colorChanged, &EditorModel::lineWidthChanged})
        connect(&m_model, signal, this, &ToolFormattingPopover::refresh);
    for (auto signal :
         {&AnnotationDocument::selectedIDChanged, &AnnotationDocument::annotationsChanged})
        connect(&m_model.document(), signal, this, &ToolFormattingPopover::refresh);
    refresh();
}

QString ToolFormattingPopover::title() const {
    return m_title->text();
}

QString ToolFormattingPopover::footnote() const {
    return m_footnote->text();
}

void ToolFormattingPopover::refresh() {
    const AnnotationTool tool = m_model.configurationTool();
    const bool badge = tool == AnnotationTool::Step;
    m_title->setText(badge ? tr("Badge color") : tr("Stroke color"));
    const QString colorTip = badge ? tr("Choose the badge color") : tr("Choose the stroke color");
    m_colors->setToolTip(colorTip);
    for (QToolButton* b : m_colors->findChildren<QToolButton*>())
        b->setToolTip(colorTip);
    m_colors->setCurrent(m_model.displayColor());

    const bool widthStyled = isWidthStyled(tool);
    m_weightTitle->setVisible(widthStyled);
    m_widthRow->setVisible(widthStyled);
    m_weightTitle->setText(tool == AnnotationTool::Highlighter ? tr("Marker width")
                                                               : tr("Stroke weight"));
    const double current = m_model.displayLineWidth();
    for (qsizetype i = 0; i < m_widthButtons.size(); ++i) {
        const double w = widths()[i];
        const QString label = widthLabel(tool, w);
        m_widthButtons[i]->setText(label);
        m_widthButtons[i]->setToolTip(tool == AnnotationTool::Highlighter
                                          ? QStringLiteral("Set marker width to ") + label
                                          : QStringLiteral("Set stroke weight to ") + label);
        m_widthButtons[i]->setChecked(std::abs(current - w) < 0.01);
    }
    const QString kind = toolInfo(tool).help.toLower();
    m_footnote->setText(m_model.configurationTargetsSelection()
                            ? QStringLiteral("Changes apply to this annotation and future ") +
                                  kind + QStringLiteral(" marks.")
                            : QStringLiteral("Saved as the default for new ") + kind +
                                  QStringLiteral(" marks."));
    adjustSize();
}

} // namespace qm
