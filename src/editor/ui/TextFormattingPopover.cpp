#include "editor/ui/TextFormattingPopover.h"

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

// --- Text popover ---

const QList<double>& TextFormattingPopover::sizes() {
    static const QList<double> values{12, 16, 20, 24, 28, 36, 48, 64, 96, 144};
    return values;
}

TextFormattingPopover::TextFormattingPopover(EditorModel& model, QWidget* parent)
    : Popover(parent)
    , m_model(model) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(14, 12, 14, 12);
    layout->setSpacing(8);
    auto* sizeRow = new QHBoxLayout;
    sizeRow->addWidget(popover::sectionTitle(tr("Size"), this));
    m_size = new QComboBox(this);
    m_size->setToolTip(tr("Choose the font size"));
    sizeRow->addWidget(m_size, 1);
    layout->addLayout(sizeRow);
    layout->addWidget(popover::sectionTitle(tr("Text color"), this));
    m_colors = new ColorRow(tr("Choose the text color"), this);
    layout->addWidget(m_colors);
    m_chip = new QCheckBox(tr("Background chip"), this);
    m_chip->setToolTip(tr("Add a readable chip behind the text"));
    layout->addWidget(m_chip);

    connect(m_size, &QComboBox::activated, this, [this](int index) {
        if (!m_refreshing)
            m_model.setFontSize(m_size->itemData(index).toDouble());
    });
    connect(m_colors, &ColorRow::picked, this,
            [this](const QColor& c) { m_model.applyTextColor(c); });
    connect(m_chip, &QCheckBox::clicked, this, [this] {
        if (!m_refreshing)
            m_model.toggleTextBackground();
    });
    const AnnotationDocument& document = m_model.document();
    for (auto signal :
         {&AnnotationDocument::annotationsChanged, &AnnotationDocument::selectedIDChanged,
          &AnnotationDocument::editingTextIDChanged})
        connect(&document, signal, this, &TextFormattingPopover::refresh);
    connect(&m_model.styles(), &ToolStyles::textFontSizeChanged, this,
            &TextFormattingPopover::refresh);
    connect(&m_model.styles(), &ToolStyles::textHasBackgroundChanged, this,
            &TextFormattingPopover::refresh);
    connect(&m_model, &EditorModel::colorChanged, this, &TextFormattingPopover::refresh);
    refresh();
}

void TextFormattingPopover::showEvent(QShowEvent* event) {
    refresh();
    Popover::showEvent(event);
}

void TextFormattingPopover::refresh() {
    // Text marks change on every keystroke; a closed popover catches up when it opens.
    if (!isVisible())
        return;
    m_refreshing = true;
    const double current = m_model.displayFontSize();
    QList<double> values = sizes();
    if (!values.contains(std::round(current)))
        values.append(std::round(current));
    std::sort(values.begin(), values.end());
    m_size->clear();
    for (double v : values)
        m_size->addItem(QString::number(v), v);
    m_size->setCurrentIndex(m_size->findData(std::round(current)));
    m_colors->setCurrent(m_model.displayTextColor());
    m_chip->setChecked(m_model.displayTextHasBackground());
    m_refreshing = false;
}

} // namespace qm
