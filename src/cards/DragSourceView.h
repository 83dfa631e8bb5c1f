#pragma once

#include "cards/DragOutGesture.h"

#include <QImage>
#include <QWidget>
#include <functional>
#include <optional>

namespace qm {

// The thumbnail of a capture card: a click opens the editor, a drag hands the capture to
// another program as a PNG file (a file URL in text/uri-list). Draws the card's face: the
// image fitted on a dark rounded card, shaded at the edges while the pointer is over it.
class DragSourceView final : public QWidget {
    Q_OBJECT
public:
    static constexpr double cornerRadius = 12.0;

    explicit DragSourceView(QWidget* parent = nullptr);

    void configure(const QImage& image, std::function<void()> onClick,
                   DragOutGesture::FileProvider fileURL, DragOutGesture::ImageProvider fullImage);
    QImage image() const { return m_image; }
    DragOutGesture& gesture() { return m_gesture; }
    // Told when a drag out begins and ends.
    std::function<void(bool dragging)> onDragChanged;
    // 0..1: how far the hover shading has faded in.
    void setHoverProgress(double progress);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    void runDrag(const QString& file);

    QImage m_image;
    QImage m_backdrop;
    DragOutGesture m_gesture;
    double m_hover = 0.0;
};

} // namespace qm
