#include "editor/ui/BackgroundPopover.h"

#include "editor/model/EditorModel.h"
#include "editor/render/AnnotationRenderer.h"
#include "editor/render/Flatten.h"

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

const QSize previewBox(360, 200);

} // namespace

// --- Backdrop popover ---

BackgroundPopover::BackgroundPopover(EditorModel& model, QWidget* parent)
    : Popover(parent)
    , m_model(model) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(14, 12, 14, 12);
    layout->setSpacing(8);
    layout->addWidget(popover::sectionTitle(tr("Backdrop"), this));
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
            m_model.backdrop().setBackground(s);
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
        m_model.backdrop().setBackground(s);
    });
    connect(m_radius, &QSlider::valueChanged, this, [this](int v) {
        if (m_refreshing)
            return;
        BackgroundStyle s = current();
        s.cornerRadius = v;
        m_model.backdrop().setBackground(s);
    });
    connect(m_shadow, &QCheckBox::clicked, this, [this](bool on) {
        BackgroundStyle s = current();
        s.shadow = on;
        m_model.backdrop().setBackground(s);
    });
    connect(m_remove, &QToolButton::clicked, this,
            [this] { m_model.backdrop().setBackground(std::nullopt); });
    connect(&m_model.backdrop(), &Backdrop::backgroundChanged, this, &BackgroundPopover::refresh);
    refresh();
}

BackgroundStyle BackgroundPopover::current() const {
    return m_model.backdrop().background().value_or(m_model.backdrop().savedBackgroundStyle());
}

void BackgroundPopover::showEvent(QShowEvent* event) {
    // The marks cannot change while the popover is open: draw the finished image small once.
    const QSize pixels = m_model.pixelSize();
    QRectF area(QPointF(0, 0), QSizeF(pixels));
    if (const auto crop = m_model.document().cropRect())
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
        paintDocument(painter, m_model.document());
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
        if (const auto bg = m_model.backdrop().background()) {
            BackgroundStyle small = *bg;
            small.padding *= m_previewScale;
            small.cornerRadius *= m_previewScale;
            shown = AnnotationRenderer::applyBackground(m_previewImage, small);
        }
        m_preview->setPixmap(QPixmap::fromImage(shown));
    }
    const auto bg = m_model.backdrop().background();
    const BackgroundStyle s = current();
    for (qsizetype i = 0; i < m_presets.size(); ++i)
        m_presets[i]->setChecked(bg && BackgroundPreset::all()[i].id == bg->presetID);
    m_padding->setValue(int(std::lround(s.padding)));
    m_radius->setValue(int(std::lround(s.cornerRadius)));
    m_shadow->setChecked(s.shadow);
    m_remove->setEnabled(bg.has_value());
    m_refreshing = false;
}

} // namespace qm
