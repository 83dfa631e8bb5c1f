#include "editor/render/Flatten.h"

#include "editor/model/AnnotationDocument.h"
#include "editor/model/EditorModel.h"
#include "editor/render/AnnotationRenderer.h"

#include <QPainter>
#include <algorithm>

namespace qm {

namespace {

void paintMarks(QPainter& painter, const AnnotationDocument& document, const QUuid& skip) {
    const QList<Annotation>& marks = document.annotations();
    const bool anyPixelate = std::any_of(marks.cbegin(), marks.cend(), [](const Annotation& a) {
        return a.is<Annotation::Pixelate>();
    });
    // The pixelated copy is made only once a mark needs it.
    AnnotationRenderer::drawMarks(painter, anyPixelate ? &document.pixelatedImage() : nullptr,
                                  marks, skip);
}

} // namespace

void paintDocument(QPainter& painter, const AnnotationDocument& document, const QUuid& skip) {
    painter.drawImage(QPointF(0, 0), document.cgBase());
    paintMarks(painter, document, skip);
}

QRect exportArea(const AnnotationDocument& document) {
    const QRect whole(QPoint(0, 0), document.pixelSize());
    if (const auto crop = document.cropRect()) {
        const QRect r = crop->intersected(QRectF(whole)).toAlignedRect();
        if (!r.isEmpty() && r != whole)
            return r;
    }
    return whole;
}

QImage flatten(const AnnotationDocument& document, const std::optional<BackgroundStyle>& backdrop) {
    const QSize pixelSize = document.pixelSize();
    const int width = pixelSize.width(), height = pixelSize.height();
    if (width < 1 || height < 1)
        return document.baseImage();
    const QImage& base = document.cgBase();
    if (base.isNull())
        return document.baseImage();
    const QRect area = exportArea(document);
    const auto paintOver = [&document](QPainter& painter) {
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        paintMarks(painter, document, {});
    };
    if (backdrop)
        return AnnotationRenderer::applyBackground(base, area, *backdrop, paintOver);

    QImage out = base.copy(area);
    if (out.isNull())
        return document.baseImage();
    QPainter painter(&out);
    if (!painter.isActive())
        return document.baseImage();
    painter.translate(-area.topLeft());
    paintOver(painter);
    painter.end();
    return out;
}

QImage flatten(const EditorModel& model) {
    return flatten(model.document(), model.backdrop().background());
}

} // namespace qm
