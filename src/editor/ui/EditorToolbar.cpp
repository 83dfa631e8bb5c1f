#include "editor/ui/EditorToolbar.h"

#include "editor/model/EditorModel.h"
#include "editor/ui/Symbols.h"
#include "ocr/TextRecognizer.h"

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

namespace {

const QColor accent(10, 132, 255);
const QSize previewBox(360, 200);

QString toolTipFor(AnnotationTool tool) {
    const AnnotationToolInfo& info = toolInfo(tool);
    return info.help + QStringLiteral(" (") + info.shortcut + QLatin1Char(')');
}

QIcon colorDotIcon(const QColor& color) {
    QPixmap pm(QSize(40, 40));
    pm.fill(Qt::transparent);
    QPainter p(&pm);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(QPen(QColor(127, 127, 127, 150), 2));
    p.setBrush(color);
    p.drawEllipse(QRectF(6, 6, 28, 28));
    p.end();
    return QIcon(pm);
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

const QList<QColor>& swatchColors() {
    static const QList<QColor> colors{
        QColor(255, 59, 48), QColor(255, 149, 0),  QColor(255, 214, 10), QColor(52, 199, 89),
        QColor(0, 199, 190), QColor(10, 132, 255), QColor(175, 82, 222), QColor(255, 45, 85),
        QColor(0, 0, 0),     QColor(255, 255, 255)};
    return colors;
}

QLabel* sectionTitle(const QString& text, QWidget* parent) {
    auto* label = new QLabel(text, parent);
    QFont f = label->font();
    f.setWeight(QFont::DemiBold);
    label->setFont(f);
    return label;
}

QLabel* footnoteLabel(QWidget* parent) {
    auto* label = new QLabel(parent);
    label->setWordWrap(true);
    QFont f = label->font();
    f.setPointSizeF(f.pointSizeF() * 0.88);
    label->setFont(f);
    QPalette p = label->palette();
    QColor c = p.color(QPalette::WindowText);
    c.setAlphaF(0.62f);
    p.setColor(QPalette::WindowText, c);
    label->setPalette(p);
    return label;
}

const QString popoverStyle = QStringLiteral(
    "QToolButton { border: 1px solid transparent; border-radius: 6px; padding: 4px 8px; }"
    "QToolButton:hover { background: rgba(127,127,127,0.18); }"
    "QToolButton:checked { background: rgba(10,132,255,0.20); border-color: rgba(10,132,255,0.7); "
    "}");

} // namespace

// --- Popover ---

Popover::Popover(QWidget* parent)
    : QFrame(parent, Qt::Popup) {
    setFrameShape(QFrame::StyledPanel);
    setStyleSheet(popoverStyle);
}

void Popover::showBelow(QWidget* anchor) {
    adjustSize();
    QPoint at =
        anchor->mapToGlobal(QPoint(anchor->width() / 2 - width() / 2, anchor->height() + 6));
    if (QScreen* screen = anchor->screen()) {
        const QRect area = screen->availableGeometry();
        at.setX(std::clamp(at.x(), area.left() + 4,
                           std::max(area.left() + 4, area.right() - width() - 4)));
    }
    move(at);
    show();
}

// --- Colour row ---

ColorRow::ColorRow(const QString& tooltip, QWidget* parent)
    : QWidget(parent) {
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);
    setToolTip(tooltip);
    for (const QColor& c : swatchColors()) {
        auto* b = new QToolButton(this);
        b->setIcon(colorDotIcon(c));
        b->setIconSize(QSize(20, 20));
        b->setCheckable(true);
        b->setAutoRaise(true);
        b->setToolTip(tooltip);
        b->setAccessibleName(hexRGB(c));
        b->setFocusPolicy(Qt::NoFocus);
        connect(b, &QToolButton::clicked, this, [this, c] { Q_EMIT picked(c); });
        layout->addWidget(b);
        m_swatches << b;
    }
    m_custom = new QToolButton(this);
    m_custom->setText(tr("Custom…"));
    m_custom->setToolTip(tooltip);
    m_custom->setFocusPolicy(Qt::NoFocus);
    connect(m_custom, &QToolButton::clicked, this, [this] {
        const QColor c = QColorDialog::getColor(m_current, window(), tr("Color"));
        if (c.isValid())
            Q_EMIT picked(c);
    });
    layout->addSpacing(4);
    layout->addWidget(m_custom);
}

void ColorRow::setCurrent(const QColor& color) {
    m_current = color;
    for (qsizetype i = 0; i < m_swatches.size(); ++i)
        m_swatches[i]->setChecked(hexRGB(swatchColors()[i]) == hexRGB(color));
}

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
    m_title = sectionTitle(QString(), this);
    m_colors = new ColorRow(QString(), this);
    m_weightTitle = sectionTitle(tr("Stroke weight"), this);
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
    m_footnote = footnoteLabel(this);
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
         {&EditorModel::toolChanged, &EditorModel::selectedIDChanged, &EditorModel::colorChanged,
          &EditorModel::lineWidthChanged, &EditorModel::annotationsChanged})
        connect(&m_model, signal, this, &ToolFormattingPopover::refresh);
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
    sizeRow->addWidget(sectionTitle(tr("Size"), this));
    m_size = new QComboBox(this);
    m_size->setToolTip(tr("Choose the font size"));
    sizeRow->addWidget(m_size, 1);
    layout->addLayout(sizeRow);
    layout->addWidget(sectionTitle(tr("Text color"), this));
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
    for (auto signal : {&EditorModel::annotationsChanged, &EditorModel::selectedIDChanged,
                        &EditorModel::editingTextIDChanged, &EditorModel::textFontSizeChanged,
                        &EditorModel::textHasBackgroundChanged, &EditorModel::colorChanged})
        connect(&m_model, signal, this, &TextFormattingPopover::refresh);
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

// --- Backdrop popover ---

BackgroundPopover::BackgroundPopover(EditorModel& model, QWidget* parent)
    : Popover(parent)
    , m_model(model) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(14, 12, 14, 12);
    layout->setSpacing(8);
    layout->addWidget(sectionTitle(tr("Backdrop"), this));
    m_preview = new QLabel(this);
    m_preview->setAlignment(Qt::AlignCenter);
    m_preview->setMinimumSize(previewBox);
    layout->addWidget(m_preview);
    auto* grid = new QGridLayout;
    grid->setSpacing(8);
    const QList<BackgroundPreset>& presets = BackgroundPreset::all();
    for (qsizetype i = 0; i < presets.size(); ++i) {
        const BackgroundPreset& preset = presets[i];
        auto* b = new QToolButton(this);
        b->setCheckable(true);
        b->setFocusPolicy(Qt::NoFocus);
        b->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
        b->setText(preset.name);
        b->setToolTip(preset.name);
        QPixmap pm(QSize(104, 64));
        pm.fill(Qt::transparent);
        QPainter p(&pm);
        p.setRenderHint(QPainter::Antialiasing);
        QLinearGradient g(QPointF(0, 0), QPointF(104, 64));
        for (qsizetype k = 0; k < preset.colors.size(); ++k)
            g.setColorAt(double(k) / double(std::max<qsizetype>(1, preset.colors.size() - 1)),
                         preset.colors[k]);
        p.setPen(Qt::NoPen);
        p.setBrush(g);
        p.drawRoundedRect(QRectF(2, 2, 100, 60), 10, 10);
        p.end();
        b->setIcon(QIcon(pm));
        b->setIconSize(QSize(52, 32));
        const QString id = preset.id;
        connect(b, &QToolButton::clicked, this, [this, id] {
            BackgroundStyle s = current();
            s.presetID = id;
            m_model.setBackground(s);
        });
        grid->addWidget(b, int(i / 4), int(i % 4));
        m_presets << b;
    }
    layout->addLayout(grid);

    const auto sliderRow = [&](const QString& label, const QString& tip, int min, int max) {
        auto* row = new QHBoxLayout;
        auto* l = new QLabel(label, this);
        l->setMinimumWidth(90);
        auto* s = new QSlider(Qt::Horizontal, this);
        s->setRange(min, max);
        s->setToolTip(tip);
        row->addWidget(l);
        row->addWidget(s, 1);
        layout->addLayout(row);
        return s;
    };
    m_padding = sliderRow(tr("Padding"), tr("Set the backdrop padding"), 16, 200);
    m_radius = sliderRow(tr("Corners"), tr("Set the backdrop corner radius"), 0, 80);
    auto* bottom = new QHBoxLayout;
    m_shadow = new QCheckBox(tr("Shadow"), this);
    m_shadow->setToolTip(tr("Drop a shadow behind the image"));
    m_remove = new QToolButton(this);
    m_remove->setText(tr("Remove"));
    m_remove->setToolTip(tr("Remove the background"));
    bottom->addWidget(m_shadow);
    bottom->addStretch();
    bottom->addWidget(m_remove);
    layout->addLayout(bottom);

    connect(m_padding, &QSlider::valueChanged, this, [this](int v) {
        if (m_refreshing)
            return;
        BackgroundStyle s = current();
        s.padding = v;
        m_model.setBackground(s);
    });
    connect(m_radius, &QSlider::valueChanged, this, [this](int v) {
        if (m_refreshing)
            return;
        BackgroundStyle s = current();
        s.cornerRadius = v;
        m_model.setBackground(s);
    });
    connect(m_shadow, &QCheckBox::clicked, this, [this](bool on) {
        BackgroundStyle s = current();
        s.shadow = on;
        m_model.setBackground(s);
    });
    connect(m_remove, &QToolButton::clicked, this, [this] { m_model.setBackground(std::nullopt); });
    connect(&m_model, &EditorModel::backgroundChanged, this, &BackgroundPopover::refresh);
    refresh();
}

BackgroundStyle BackgroundPopover::current() const {
    return m_model.background().value_or(m_model.savedBackgroundStyle());
}

void BackgroundPopover::showEvent(QShowEvent* event) {
    // The marks cannot change while the popover is open: draw the finished image small once.
    const QSize pixels = m_model.pixelSize();
    QRectF area(QPointF(0, 0), QSizeF(pixels));
    if (const auto crop = m_model.cropRect())
        area = crop->intersected(area);
    if (!area.isEmpty()) {
        m_previewScale = std::min(double(previewBox.width() - 40) / area.width(),
                                  double(previewBox.height() - 40) / area.height());
        const QSize size = (area.size() * m_previewScale).toSize().expandedTo(QSize(1, 1));
        QImage small(size, QImage::Format_ARGB32_Premultiplied);
        small.fill(Qt::transparent);
        QPainter painter(&small);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.scale(m_previewScale, m_previewScale);
        painter.translate(-area.topLeft());
        m_model.paint(painter);
        painter.end();
        m_previewImage = small;
    }
    refresh();
    Popover::showEvent(event);
}

void BackgroundPopover::refresh() {
    m_refreshing = true;
    if (!m_previewImage.isNull() && isVisible()) {
        QImage shown = m_previewImage;
        if (const auto bg = m_model.background()) {
            BackgroundStyle small = *bg;
            small.padding *= m_previewScale;
            small.cornerRadius *= m_previewScale;
            shown = EditorModel::applyBackground(m_previewImage, small);
        }
        m_preview->setPixmap(QPixmap::fromImage(shown));
    }
    const auto bg = m_model.background();
    const BackgroundStyle s = current();
    for (qsizetype i = 0; i < m_presets.size(); ++i)
        m_presets[i]->setChecked(bg && BackgroundPreset::all()[i].id == bg->presetID);
    m_padding->setValue(int(std::lround(s.padding)));
    m_radius->setValue(int(std::lround(s.cornerRadius)));
    m_shadow->setChecked(s.shadow);
    m_remove->setEnabled(bg.has_value());
    m_refreshing = false;
}

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
            menu->addAction(symbolIcon(toolInfo(tool).symbol),
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
    m_model.commitPendingText();
    m_model.setTool(tool);
    m_model.setSelectedID(std::nullopt);
    m_remembered = tool;
    refresh();
}

void ToolGroupButton::refresh() {
    const AnnotationToolInfo& info = toolInfo(m_remembered);
    setIcon(symbolIcon(info.symbol));
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
        QToolButton* b = makeButton(toolInfo(tool).symbol, toolTipFor(tool));
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
    m_text = makeButton(QStringLiteral("textformat.size"),
                        tr("Text formatting: size, color, and background"));
    connect(m_text, &QToolButton::clicked, this, [this] { m_textPopover->showBelow(m_text); });
    m_backdrop = makeButton({}, tr("Backdrop"));
    connect(m_backdrop, &QToolButton::clicked, this,
            [this] { m_backgroundPopover->showBelow(m_backdrop); });
    layout->addWidget(m_stroke);
    layout->addWidget(m_text);
    layout->addWidget(m_backdrop);
    divider();

    m_undo = makeButton(QStringLiteral("arrow.uturn.backward"), tr("Undo"));
    m_undo->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Z));
    connect(m_undo, &QToolButton::clicked, this, [this] {
        m_model.commitPendingText();
        m_model.undo();
    });
    m_redo = makeButton(QStringLiteral("arrow.uturn.forward"), tr("Redo"));
    m_redo->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Z));
    connect(m_redo, &QToolButton::clicked, this, [this] {
        m_model.commitPendingText();
        m_model.redo();
    });
    m_delete = makeButton(QStringLiteral("trash"), QStringLiteral("Delete selected (⌫)"));
    connect(m_delete, &QToolButton::clicked, this, [this] { m_model.removeSelected(); });
    layout->addWidget(m_undo);
    layout->addWidget(m_redo);
    layout->addWidget(m_delete);

    m_applyCrop = makeButton(QStringLiteral("checkmark"), tr("Apply crop (Return)"));
    connect(m_applyCrop, &QToolButton::clicked, this, [this] { m_model.commitCrop(); });
    m_cancelCrop = makeButton(QStringLiteral("xmark"), QStringLiteral("Cancel crop (Esc)"));
    connect(m_cancelCrop, &QToolButton::clicked, this, [this] { m_model.cancelCrop(); });
    layout->addWidget(m_applyCrop);
    layout->addWidget(m_cancelCrop);
    layout->addStretch(1);

    m_copyText = makeButton(QStringLiteral("text.viewfinder"), tr("Copy text"));
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
    m_copyImage = makeButton(QStringLiteral("doc.on.doc"), tr("Copy the finished image"));
    connect(m_copyImage, &QToolButton::clicked, this, [this] {
        if (onCopy)
            onCopy();
    });
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
    layout->addWidget(m_copyImage);
    layout->addSpacing(8);
    layout->addWidget(m_done);

    for (auto signal :
         {&EditorModel::toolChanged, &EditorModel::selectedIDsChanged,
          &EditorModel::selectedIDChanged, &EditorModel::historyChanged, &EditorModel::colorChanged,
          &EditorModel::annotationsChanged, &EditorModel::cropEditChanged,
          &EditorModel::editingTextIDChanged, &EditorModel::ocrSelectingChanged})
        connect(&m_model, signal, this, &EditorToolbar::refresh);
    connect(&m_model, &EditorModel::backgroundChanged, this, &EditorToolbar::refreshBackdrop);
    refresh();
    refreshBackdrop();
}

QToolButton* EditorToolbar::makeButton(const QString& symbol, const QString& tooltip) {
    auto* b = new QToolButton(this);
    if (!symbol.isEmpty())
        b->setIcon(symbolIcon(symbol));
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
    m_model.commitPendingText();
    m_model.setTool(tool);
    // Picking the select tool keeps what is selected; a drawing tool starts afresh.
    if (tool != AnnotationTool::Select)
        m_model.setSelectedID(std::nullopt);
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
        m_stroke->setIcon(colorDotIcon(dot));
        m_strokeIconColor = dot;
    }
    m_stroke->setToolTip(config == AnnotationTool::Step ? tr("Badge color")
                                                        : tr("Stroke color and weight"));
    m_text->setEnabled(config == AnnotationTool::Text || m_model.hasTargetedText());
    m_undo->setEnabled(m_model.canUndo());
    m_redo->setEnabled(m_model.canRedo());
    m_delete->setEnabled(!m_model.selectedIDs().isEmpty());
    const bool cropping = m_model.cropEdit().has_value();
    m_applyCrop->setVisible(cropping);
    m_cancelCrop->setVisible(cropping);
    m_copyText->setEnabled(!m_ocrRunning);
}

void EditorToolbar::refreshBackdrop() {
    const auto bg = m_model.background();
    const QString preset = bg ? bg->presetID : m_model.savedBackgroundStyle().presetID;
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
    TextRecognizer::copyText(m_model.baseImage(), this, [this](const Result<QString>& text) {
        m_ocrRunning = false;
        showOcrResult(text.ok() && !text->isEmpty());
    });
}

void EditorToolbar::copyTextFromSelection() {
    m_model.commitPendingText();
    m_model.setOcrSelecting(true);
}

void EditorToolbar::showOcrResult(bool found) {
    m_ocrResult = found;
    m_copyText->setIcon(symbolIcon(found ? QStringLiteral("checkmark") : QStringLiteral("xmark")));
    m_copyText->setToolTip(found ? tr("Copied") : tr("No text found"));
    refresh();
    QTimer::singleShot(1400, this, [this] {
        m_ocrResult.reset();
        m_copyText->setIcon(symbolIcon(QStringLiteral("text.viewfinder")));
        m_copyText->setToolTip(tr("Copy text"));
    });
}

} // namespace qm
