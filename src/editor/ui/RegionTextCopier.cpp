#include "editor/ui/RegionTextCopier.h"

#include "editor/model/EditorModel.h"
#include "ocr/TextRecognizer.h"

namespace qm {

namespace {

constexpr int messageMs = 1400;

} // namespace

RegionTextCopier::RegionTextCopier(const EditorModel& model, QObject* parent)
    : QObject(parent)
    , m_model(model) {
    m_messageTimer.setSingleShot(true);
    m_messageTimer.setInterval(messageMs);
    connect(&m_messageTimer, &QTimer::timeout, this, [this] {
        m_message.reset();
        Q_EMIT capsuleChanged();
    });
    // The prompt shows while the user picks a region.
    connect(&m_model, &EditorModel::ocrSelectingChanged, this, &RegionTextCopier::capsuleChanged);
}

void RegionTextCopier::copyTextInRegion(const QRectF& rect) {
    const AnnotationDocument& document = m_model.document();
    const QImage& base = document.baseImage();
    if (base.isNull() || document.pixelSize().isEmpty())
        return;
    // Image pixels to the raster's own grid (they differ for images with a device ratio).
    const double sx = double(base.width()) / document.pixelSize().width();
    const double sy = double(base.height()) / document.pixelSize().height();
    const QRect cut = QRectF(rect.x() * sx, rect.y() * sy, rect.width() * sx, rect.height() * sy)
                          .toAlignedRect()
                          .intersected(base.rect());
    if (cut.isEmpty())
        return;
    QImage region = base.copy(cut);
    if (region.isNull())
        return;
    region.setDevicePixelRatio(1);
    m_message = tr("Reading text…");
    m_messageTimer.stop();
    Q_EMIT capsuleChanged();
    TextRecognizer::copyText(region, this, [this](const Result<QString>& text) {
        const bool found = text.ok() && !text->isEmpty();
        if (!text.ok())
            flashMessage(tr("Could not read text: %1").arg(text.error().reason));
        else
            flashMessage(found ? tr("Copied") : tr("No text in selection"));
        Q_EMIT textCopied(found);
    });
}

void RegionTextCopier::flashMessage(const QString& text) {
    m_message = text;
    m_messageTimer.start();
    Q_EMIT capsuleChanged();
}

std::optional<QString> RegionTextCopier::capsuleText() const {
    if (m_message)
        return m_message;
    if (m_model.ocrSelecting())
        return tr("Drag across the text you want to copy — Esc cancels");
    return std::nullopt;
}

} // namespace qm
